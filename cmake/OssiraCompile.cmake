# How every target of this tree is compiled and linked.

function(ossira_compile_options target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES
      CXX_EXTENSIONS OFF
      POSITION_INDEPENDENT_CODE ON
      CXX_VISIBILITY_PRESET hidden
      C_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON)
  target_compile_definitions(${target} PRIVATE
      OSSIRA_TRACK_OBJECTS=$<BOOL:${OSSIRA_TRACK_OBJECTS}>
      OSSIRA_CHECK_LOCK_ORDER=$<BOOL:${OSSIRA_CHECK_LOCK_ORDER}>)
  # Reported file names are relative to the source tree, and no path of the machine that built a
  # binary is in it.
  target_compile_options(${target} PRIVATE
      -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
      -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2
      -Werror
      $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>)
  if(NOT WIN32)
    # A library with GNU-unique symbols can never be unloaded.
    target_compile_options(${target} PRIVATE
        $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique> -fno-plt -fno-semantic-interposition)
  endif()
  ossira_sanitize(${target})
endfunction()

# Lean libraries load fast: no lazy binding tables, few symbols to look up.
function(ossira_link_options target)
  if(WIN32)
    # The compiler's run-time libraries go into the library: it needs only the system's own.
    target_link_options(${target} PRIVATE -static -static-libgcc -static-libstdc++)
  else()
    target_link_options(${target} PRIVATE
        -Wl,-z,now -Wl,-z,defs -Wl,--as-needed -Wl,--hash-style=gnu -Wl,-Bsymbolic -Wl,-O1)
  endif()
  if(CMAKE_BUILD_TYPE STREQUAL "Release")
    target_link_options(${target} PRIVATE -s)
  endif()
  ossira_sanitize(${target})
endfunction()

function(ossira_sanitize target)
  if(OSSIRA_SANITIZE)
    # References at address 0 are what callers of other languages pass, and what is caught where a
    # thread is ended; both are looked for and answered.
    target_compile_options(${target} PRIVATE
        -fsanitize=${OSSIRA_SANITIZE} -fno-sanitize=null -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
    target_link_options(${target} PRIVATE -fsanitize=${OSSIRA_SANITIZE})
  endif()
endfunction()
