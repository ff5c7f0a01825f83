# ossira_add_module(<name> SOURCES <file>...)
#
# Builds <name>.dll, a component module, from the sources of its classes. The frame is linked into it
# whole: it brings the exports, the library's entry, and the tables that OSSIRA_CLASS and
# OSSIRA_BOOTSTRAP fill, which nothing in the sources refers to by name.
include_guard(GLOBAL)
include(${CMAKE_CURRENT_LIST_DIR}/OssiraCompile.cmake)

# Where the public headers' own paths are cut, so that reported file names are relative.
get_filename_component(OSSIRA_SOURCE_DIR ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)

function(ossira_add_module name)
  cmake_parse_arguments(PARSE_ARGV 1 module "" "" "SOURCES")
  if(NOT module_SOURCES OR module_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "ossira_add_module(${name}): say ossira_add_module(<name> SOURCES <file>...)")
  endif()

  add_library(${name} MODULE ${module_SOURCES})
  set_target_properties(${name} PROPERTIES
      PREFIX "" SUFFIX ".dll"
      CXX_EXTENSIONS OFF
      CXX_VISIBILITY_PRESET hidden
      C_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON
      # What the module depends on is looked for in its own folder; no path of the build stays in it.
      BUILD_WITH_INSTALL_RPATH ON
      INSTALL_RPATH "$ORIGIN")
  target_compile_options(${name} PRIVATE
      -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${OSSIRA_SOURCE_DIR}/=)
  if(NOT WIN32)
    # A module with GNU-unique symbols can never be unloaded.
    target_compile_options(${name} PRIVATE
        $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>)
  endif()
  target_link_libraries(${name} PRIVATE
      $<LINK_LIBRARY:WHOLE_ARCHIVE,Ossira::Frame> Ossira::Runtime)
  ossira_link_options(${name})
endfunction()
