# The CMake package, twice: in the build tree, for projects elsewhere that set Ossira_DIR to it, and
# as it is installed. Everything installed finds the rest by relative paths, so that the folder may
# be moved. And the packages that are given away: a zip for Windows, .deb files for Debian.
include(CMakePackageConfigHelpers)

set_target_properties(ossira_frame PROPERTIES EXPORT_NAME Frame)
set_target_properties(TavrikOssira PROPERTIES EXPORT_NAME Runtime)

# --- In the build tree ----------------------------------------------------------------------------

set(OSSIRA_TARGETS ${PROJECT_BINARY_DIR}/OssiraTargets.cmake)
set(OSSIRA_CMAKE_FOLDER ${PROJECT_SOURCE_DIR}/cmake)
set(OSSIRA_SAMPLE_HEADERS ${PROJECT_SOURCE_DIR}/samples/include)
export(TARGETS ossira_frame TavrikOssira NAMESPACE Ossira:: FILE ${OSSIRA_TARGETS})
configure_file(cmake/OssiraConfig.cmake.in OssiraConfig.cmake @ONLY)
write_basic_package_version_file(OssiraConfigVersion.cmake COMPATIBILITY SameMajorVersion)

# --- For the debugger -------------------------------------------------------------------------------

# The printers, with the names that they show, in one file where GDB looks for it.
set(OSSIRA_PRINTERS ${PROJECT_BINARY_DIR}/bin/TavrikOssira.dll-gdb.py)
set(printerParts ${PROJECT_SOURCE_DIR}/debug/names.py ${PROJECT_SOURCE_DIR}/debug/printers.py)
add_custom_command(OUTPUT ${OSSIRA_PRINTERS}
    COMMAND ${CMAKE_COMMAND} -E cat ${printerParts} > ${OSSIRA_PRINTERS}
    DEPENDS ${printerParts} VERBATIM)
add_custom_target(ossira_printers ALL DEPENDS ${OSSIRA_PRINTERS})

# A release's debug information is laid beside the runtime, which refers to it by name. It is for the
# printers, and for whoever looks at a core file.
if(NOT WIN32 AND CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_options(ossira_runtime_objects PRIVATE -g)
  get_target_property(options TavrikOssira LINK_OPTIONS)
  list(REMOVE_ITEM options -s)
  set_target_properties(TavrikOssira PROPERTIES LINK_OPTIONS "${options}")
  set(OSSIRA_DEBUG_INFORMATION ${PROJECT_BINARY_DIR}/bin/TavrikOssira.dll.debug)
  add_custom_command(TARGET TavrikOssira POST_BUILD
      COMMAND ${CMAKE_OBJCOPY} --only-keep-debug --compress-debug-sections
              $<TARGET_FILE:TavrikOssira> ${OSSIRA_DEBUG_INFORMATION}
      COMMAND ${CMAKE_OBJCOPY} --strip-all --add-gnu-debuglink=${OSSIRA_DEBUG_INFORMATION}
              $<TARGET_FILE:TavrikOssira>
      VERBATIM)
endif()

# --- The import library of other linkers ----------------------------------------------------------

# MinGW's linker made one of its own beside the runtime. This one is in the form that Microsoft's
# linker defined, and that LLVM's and MinGW's read as well.
if(WIN32)
  find_program(OSSIRA_DLLTOOL NAMES llvm-dlltool-14 llvm-dlltool)
  if(OSSIRA_DLLTOOL)
    set(OSSIRA_IMPORT_LIBRARY ${PROJECT_BINARY_DIR}/lib/TavrikOssira.lib)
    set(definition ${PROJECT_SOURCE_DIR}/contract/TavrikOssira.def)
    add_custom_command(OUTPUT ${OSSIRA_IMPORT_LIBRARY}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/lib
        COMMAND ${OSSIRA_DLLTOOL} -m i386:x86-64 -l ${OSSIRA_IMPORT_LIBRARY} -d ${definition}
        DEPENDS ${definition} COMMENT "Making TavrikOssira.lib" VERBATIM)
    add_custom_target(ossira_import_library ALL DEPENDS ${OSSIRA_IMPORT_LIBRARY})
    install(FILES ${OSSIRA_IMPORT_LIBRARY} DESTINATION lib COMPONENT development)
  else()
    install(CODE "message(WARNING \"TavrikOssira.lib is missing: install llvm-14\")"
        COMPONENT development)
  endif()
endif()

# --- Installed ------------------------------------------------------------------------------------

set(packageFolder lib/cmake/Ossira)

install(TARGETS TavrikOssira EXPORT OssiraTargets
    RUNTIME DESTINATION bin COMPONENT runtime
    LIBRARY DESTINATION lib COMPONENT runtime
    ARCHIVE DESTINATION lib COMPONENT development
    INCLUDES DESTINATION include/ossira)
install(TARGETS ossira_frame EXPORT OssiraTargets
    ARCHIVE DESTINATION lib COMPONENT development
    INCLUDES DESTINATION include/ossira)
install(EXPORT OssiraTargets NAMESPACE Ossira::
    DESTINATION ${packageFolder} COMPONENT development)
install(DIRECTORY includes/ DESTINATION include/ossira COMPONENT development)
install(DIRECTORY samples/include/ DESTINATION include/ossira/samples COMPONENT development)
install(FILES cmake/OssiraModule.cmake cmake/OssiraCompile.cmake
              ${PROJECT_BINARY_DIR}/OssiraConfigVersion.cmake
    DESTINATION ${packageFolder} COMPONENT development)

set(OSSIRA_TARGETS [[${CMAKE_CURRENT_LIST_DIR}/OssiraTargets.cmake]])
set(OSSIRA_CMAKE_FOLDER [[${CMAKE_CURRENT_LIST_DIR}]])
set(OSSIRA_SAMPLE_HEADERS [[${CMAKE_CURRENT_LIST_DIR}/../../../include/ossira/samples]])
configure_file(cmake/OssiraConfig.cmake.in installed/OssiraConfig.cmake @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/installed/OssiraConfig.cmake
    DESTINATION ${packageFolder} COMPONENT development)

# The library's name has no prefix and, on Linux, not the usual ending.
function(ossira_install_pkgconfig OSSIRA_PC_NAME OSSIRA_PC_DESCRIPTION OSSIRA_PC_REQUIRES
         OSSIRA_PC_LIBS)
  configure_file(cmake/ossira.pc.in installed/${OSSIRA_PC_NAME}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/installed/${OSSIRA_PC_NAME}.pc
      DESTINATION lib/pkgconfig COMPONENT development)
endfunction()
if(WIN32)
  ossira_install_pkgconfig(ossira "Component-object runtime" "" "-lTavrikOssira")
else()
  ossira_install_pkgconfig(ossira "Component-object runtime" "" "-l:TavrikOssira.dll")
endif()
ossira_install_pkgconfig(ossira-module "Frame of the runtime's component modules" "ossira"
    "-Wl,--whole-archive -lossira_frame -Wl,--no-whole-archive")

# GDB finds the printers and the debug information beside the runtime. On Windows they are of use to
# a GDB too, but nothing names the information apart there.
if(WIN32)
  install(FILES ${OSSIRA_PRINTERS} DESTINATION bin COMPONENT runtime)
else()
  install(FILES ${OSSIRA_PRINTERS} DESTINATION lib COMPONENT runtime)
endif()
if(OSSIRA_DEBUG_INFORMATION)
  install(FILES ${OSSIRA_DEBUG_INFORMATION} DESTINATION lib/.debug COMPONENT debug)
endif()
install(FILES debug/Ossira.natvis DESTINATION share/ossira COMPONENT development)

# What is read, and what other languages begin with.
install(FILES README.md CHANGELOG.md DESTINATION share/doc/ossira COMPONENT development)
install(DIRECTORY docs DESTINATION share/doc/ossira COMPONENT development)
install(DIRECTORY samples DESTINATION share/doc/ossira COMPONENT development)
install(FILES contract/ossira.json contract/documentation.json contract/TavrikOssira.def
    DESTINATION share/ossira/contract COMPONENT development)
install(DIRECTORY python/ossira DESTINATION share/ossira/python COMPONENT development
    PATTERN __pycache__ EXCLUDE)

# --- Given away -----------------------------------------------------------------------------------

set(CPACK_PACKAGE_NAME ossira)
set(CPACK_PACKAGE_VENDOR "The Ossira developers")
set(CPACK_PACKAGE_CONTACT "The Ossira developers <developers@ossira.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Component-object runtime for desktop programs")
set(CPACK_COMPONENTS_ALL runtime development)
if(OSSIRA_DEBUG_INFORMATION)
  list(APPEND CPACK_COMPONENTS_ALL debug)
endif()
if(OSSIRA_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
set(CPACK_STRIP_FILES OFF) # releases are linked without symbols
if(WIN32)
  # One archive with everything.
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME ossira-${PROJECT_VERSION}-windows-x86_64)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
      GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebianLayout.cmake)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/bin)

  # The arguments: the component, its package, the section, and a line of what it is.
  macro(ossira_debian_package component name section summary)
    set(CPACK_DEBIAN_${component}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${component}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${component}_DESCRIPTION "${summary}")
  endmacro()
  ossira_debian_package(RUNTIME ossira-runtime libs
      "Component-object runtime: the library that hosts link")
  ossira_debian_package(DEVELOPMENT ossira-dev libdevel
      "Component-object runtime: headers, module frame, CMake package, documents")
  ossira_debian_package(TOOL ossira devel
      "Component-object runtime: the command that runs folders of modules")
  ossira_debian_package(DEBUG ossira-runtime-dbgsym debug
      "Component-object runtime: debug information")
  set(CPACK_DEBIAN_DEBUG_PACKAGE_SHLIBDEPS OFF)
  foreach(component DEVELOPMENT TOOL DEBUG)
    set(CPACK_DEBIAN_${component}_PACKAGE_DEPENDS "ossira-runtime (= ${PROJECT_VERSION})")
  endforeach()
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
  # The projects that the command begins build with these; it draws graphs with graphviz.
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "g++ (>= 4:12), cmake (>= 3.25), make | ninja-build")
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "pkg-config, gdb, python3")
  set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS "ossira-dev (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS "graphviz")
endif()
include(CPack)
