# What clang does beside this build's compiler: objects for modules of other compilers, and the proof
# that what a lock guards is touched under it (see system/GuardedBy.h).

find_program(OSSIRA_CLANG NAMES clang++-14 clang++)

# Has clang read sources, named from the tree's top, each again when it or what it includes has
# changed. What comes of one is a file that ends in `suffix`, which is empty if clang writes none;
# FILE stands for it in the options. `files` is the list of them.
function(ossira_clang_each files name suffix)
  cmake_parse_arguments(PARSE_ARGV 3 clang "" "" "SOURCES;OPTIONS")
  foreach(source IN LISTS clang_SOURCES)
    string(MAKE_C_IDENTIFIER ${source} file)
    set(file ${CMAKE_CURRENT_BINARY_DIR}/${name}/${file}${suffix})
    list(APPEND made ${file})
    list(TRANSFORM clang_OPTIONS REPLACE "^FILE$" ${file} OUTPUT_VARIABLE options)
    add_custom_command(OUTPUT ${file}
        COMMAND ${OSSIRA_CLANG} -std=c++20 ${options} -I${PROJECT_SOURCE_DIR}/includes
                ${PROJECT_SOURCE_DIR}/${source} -MD -MT ${file} -MF ${file}.d
        COMMAND ${CMAKE_COMMAND} -E touch ${file}
        DEPENDS ${PROJECT_SOURCE_DIR}/${source} DEPFILE ${file}.d
        COMMENT "Clang: ${name}/${source}" VERBATIM COMMAND_EXPAND_LISTS)
  endforeach()
  file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/${name})
  set(${files} ${made} PARENT_SCOPE)
endfunction()

# Compiles sources with clang and further options; `objects` is the list of what comes of it.
function(ossira_clang_objects objects name)
  cmake_parse_arguments(PARSE_ARGV 2 clang "" "" "SOURCES;OPTIONS")
  ossira_clang_each(made ${name} ${CMAKE_CXX_OUTPUT_EXTENSION} SOURCES ${clang_SOURCES}
      OPTIONS -O1 -Wall -Wextra -Werror ${clang_OPTIONS} -c -o FILE)
  set(${objects} ${made} PARENT_SCOPE)
endfunction()

# The proof, a target beside `all`. Sanitizers and the check of the order at run time change nothing
# of what is guarded, so one configuration does for all.
function(ossira_prove_guards)
  set(sources)
  foreach(part IN LISTS ARGN)
    get_target_property(partSources ${part} SOURCES)
    list(APPEND sources ${partSources})
  endforeach()
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  list(REMOVE_DUPLICATES sources)
  if(NOT OSSIRA_CLANG)
    add_custom_target(guards VERBATIM
        COMMAND sh -c "echo 'No clang here: scripts/install-packages contract'; exit 1")
    return()
  endif()
  set(folders system src/frame src/containers)
  list(TRANSFORM folders PREPEND -I${PROJECT_SOURCE_DIR}/)
  ossira_clang_each(proofs guards .proof SOURCES ${sources}
      OPTIONS -fsyntax-only -Wthread-safety -Werror=thread-safety
              -include ${PROJECT_SOURCE_DIR}/cmake/GuardsPrefix.h ${folders}
              -DOSSIRA_BUILDING_RUNTIME -DOSSIRA_TRACK_OBJECTS=1 -DOSSIRA_CHECK_LOCK_ORDER=0)
  add_custom_target(guards DEPENDS ${proofs})
endfunction()
