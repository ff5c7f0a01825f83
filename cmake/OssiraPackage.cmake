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

# --- Given away -----------------------------------------------------------------------------------

set(CPACK_PACKAGE_NAME ossira)
set(CPACK_PACKAGE_VENDOR "The Ossira developers")
set(CPACK_PACKAGE_CONTACT "The Ossira developers <developers@ossira.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Component-object runtime for desktop programs")
set(CPACK_COMPONENTS_ALL runtime development)
if(OSSIRA_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
set(CPACK_STRIP_FILES OFF) # releases are linked without symbols
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME ossira-${PROJECT_VERSION}-windows-x86_64)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/bin)
  set(CPACK_DEBIAN_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ossira-runtime)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ossira-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ossira)
  set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION devel)
  foreach(component DEVELOPMENT TOOL)
    set(CPACK_DEBIAN_${component}_PACKAGE_DEPENDS "ossira-runtime (= ${PROJECT_VERSION})")
  endforeach()
endif()
include(CPack)
