# How a project of its own builds modules and hosts. `Ossira::Runtime` is the runtime with its
# headers; `Ossira::Module` is what a module links besides its sources.
#
# ossira_add_module(<name> SOURCES <file>...)
#   Builds <name>.dll, a component module, from the sources of its classes. The frame is linked into
#   it whole: it brings the exports, the library's entry, and the tables that OSSIRA_CLASS and
#   OSSIRA_BOOTSTRAP fill, which nothing in the sources refers to by name.
#
# ossira_add_host(<name> SOURCES <file>...)
#   Builds a program that uses the runtime, and lays the runtime beside it.
include_guard(GLOBAL)
include(${CMAKE_CURRENT_LIST_DIR}/OssiraCompile.cmake)

function(ossira_parse_sources function name)
  cmake_parse_arguments(PARSE_ARGV 2 parsed "" "" "SOURCES")
  if(NOT parsed_SOURCES OR parsed_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "${function}(${name}): say ${function}(<name> SOURCES <file>...)")
  endif()
  set(sources ${parsed_SOURCES} PARENT_SCOPE)
endfunction()

# What is beside the file is found first; no path of the build stays in it.
function(ossira_make_relocatable target)
  set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "$ORIGIN")
  get_target_property(headers Ossira::Runtime INTERFACE_INCLUDE_DIRECTORIES)
  list(TRANSFORM headers REPLACE "(.+)" "-ffile-prefix-map=\\1/=")
  target_compile_options(${target} PRIVATE ${headers} -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
endfunction()

function(ossira_add_module name)
  ossira_parse_sources(ossira_add_module ${name} ${ARGN})
  add_library(${name} MODULE ${sources})
  set_target_properties(${name} PROPERTIES
      PREFIX "" SUFFIX ".dll"
      CXX_EXTENSIONS OFF
      CXX_VISIBILITY_PRESET hidden
      C_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON)
  ossira_make_relocatable(${name})
  if(NOT WIN32)
    # A module with GNU-unique symbols can never be unloaded.
    target_compile_options(${name} PRIVATE
        $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>)
  endif()
  target_link_libraries(${name} PRIVATE Ossira::Module)
  ossira_link_options(${name})
endfunction()

function(ossira_add_host name)
  ossira_parse_sources(ossira_add_host ${name} ${ARGN})
  add_executable(${name} ${sources})
  ossira_make_relocatable(${name})
  target_link_libraries(${name} PRIVATE Ossira::Runtime)
  ossira_link_options(${name})
  add_custom_command(TARGET ${name} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E copy_if_different
              $<TARGET_FILE:Ossira::Runtime> $<TARGET_FILE_DIR:${name}>)
endfunction()
