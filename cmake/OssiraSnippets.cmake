# The code that the documents show, taken out of them when the build is configured, so that what a
# reader copies is what is built and run here. In a document a comment stands before each block:
#
#     <!-- file: NAME -->      a whole file
#     <!-- part: NAME -->      a part of one, which a program of tests/documents includes
#     <!-- output: NAME -->    what a program prints
#
# All blocks of C++ have one, or the configuration fails. They are written to OSSIRA_SNIPPETS.
set(OSSIRA_SNIPPETS ${PROJECT_BINARY_DIR}/snippets)

function(ossira_extract_snippets)
  foreach(document IN LISTS ARGN)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${document})
    file(READ ${document} text)
    string(REGEX MATCHALL "\n```cpp\n" blocks "${text}")
    list(LENGTH blocks unnamed)
    while(text MATCHES "\n<!-- (file|part|output): ([A-Za-z./]+) -->\n```([a-z]*)\n")
      set(name ${CMAKE_MATCH_2})
      if(CMAKE_MATCH_3 STREQUAL "cpp")
        math(EXPR unnamed "${unnamed} - 1")
      endif()
      string(LENGTH "${CMAKE_MATCH_0}" headLength)
      string(FIND "${text}" "${CMAKE_MATCH_0}" begin)
      math(EXPR begin "${begin} + ${headLength}")
      string(SUBSTRING "${text}" ${begin} -1 text)
      string(FIND "${text}" "\n```\n" end)
      math(EXPR end "${end} + 1")
      string(SUBSTRING "${text}" 0 ${end} snippet)
      string(SUBSTRING "${text}" ${end} -1 text)
      set(target ${OSSIRA_SNIPPETS}/${name})
      set(present)
      if(EXISTS ${target})
        file(READ ${target} present)
      endif()
      if(NOT present STREQUAL snippet) # what is unchanged is not built again
        file(WRITE ${target} "${snippet}")
      endif()
    endwhile()
    if(NOT unnamed EQUAL 0)
      message(SEND_ERROR "${document} shows C++ in ${unnamed} blocks without a comment before them")
    endif()
  endforeach()
endfunction()
