# Installs the build into a folder, moves that folder, builds the project in samples/elsewhere from it
# and runs what came out. Parameters: BUILD, SOURCE, WORK (an empty folder of its own), TOOLCHAIN and
# EMULATOR (may be empty), EXECUTABLE_SUFFIX, CXX.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${what}: ${code}\n${out}")
  endif()
  set(output "${out}" PARENT_SCOPE)
endfunction()

run("install" ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/installed)
file(RENAME ${WORK}/installed ${WORK}/moved)
file(GLOB_RECURSE texts ${WORK}/moved/*.cmake ${WORK}/moved/*.pc)
foreach(text IN LISTS texts)
  file(READ ${text} content)
  foreach(folder ${BUILD} ${WORK} ${SOURCE})
    string(FIND "${content}" "${folder}" position)
    if(NOT position EQUAL -1)
      message(SEND_ERROR "${text} holds ${folder}")
    endif()
  endforeach()
endforeach()

set(toolchain)
if(TOOLCHAIN)
  set(toolchain -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
endif()
run("configure" ${CMAKE_COMMAND} -S ${SOURCE}/samples/elsewhere -B ${WORK}/build -G Ninja
    -DCMAKE_BUILD_TYPE=Release -DOssira_ROOT=${WORK}/moved -DCMAKE_FIND_ROOT_PATH=${WORK}/moved
    ${toolchain})
run("build" ${CMAKE_COMMAND} --build ${WORK}/build)
run("host" ${EMULATOR} ${WORK}/build/Host${EXECUTABLE_SUFFIX} ${WORK}/build/modules)
if(NOT output MATCHES "Hello says hello")
  message(SEND_ERROR "the host said: ${output}")
endif()

# The same without CMake.
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_LIBDIR} ${WORK}/moved/lib/pkgconfig)
run("pkg-config" ${PKG_CONFIG} --cflags --libs ossira)
separate_arguments(flags UNIX_COMMAND "${output}")
run("compile" ${CXX} -std=c++20 ${SOURCE}/samples/elsewhere/host/Host.cpp -o
    ${WORK}/build/Plain${EXECUTABLE_SUFFIX} ${flags} -static-libgcc -static-libstdc++)
