# Installs the build into a folder, moves that folder, builds the project in samples/elsewhere from it
# and runs what came out. Then makes the packages that are given away, unpacks them, and looks whether
# all that was installed is in them and the tool works from there. Parameters: BUILD, SOURCE, WORK (an
# empty folder of its own), TOOLCHAIN and EMULATOR (may be empty), EXECUTABLE_SUFFIX, CXX.
cmake_minimum_required(VERSION 3.25)
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

# The project that the README shows.
run("configure the README's" ${CMAKE_COMMAND} -S ${BUILD}/snippets -B ${WORK}/weather -G Ninja
    -DCMAKE_BUILD_TYPE=Release -DOssira_ROOT=${WORK}/moved -DCMAKE_FIND_ROOT_PATH=${WORK}/moved
    ${toolchain})
run("build the README's" ${CMAKE_COMMAND} --build ${WORK}/weather)
run("run the README's" ${CMAKE_COMMAND} -E chdir ${WORK}
    ${EMULATOR} ${WORK}/moved/bin/ossira${EXECUTABLE_SUFFIX} run weather)
if(NOT output MATCHES "Sunny")
  message(SEND_ERROR "the README's module said: ${output}")
endif()

# The same without CMake.
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_LIBDIR} ${WORK}/moved/lib/pkgconfig)
run("pkg-config" ${PKG_CONFIG} --cflags --libs ossira)
separate_arguments(flags UNIX_COMMAND "${output}")
set(link -Wl,-rpath,${WORK}/moved/lib)
if(EMULATOR) # by the import library that other linkers read
  list(TRANSFORM flags REPLACE "^-lTavrikOssira$" ${WORK}/moved/lib/TavrikOssira.lib)
  set(link -static)
endif()
run("compile" ${CXX} -std=c++20 ${SOURCE}/samples/elsewhere/host/Host.cpp -o
    ${WORK}/build/Plain${EXECUTABLE_SUFFIX} ${flags} ${link})
run("plain host" ${EMULATOR} ${WORK}/build/Plain${EXECUTABLE_SUFFIX} ${WORK}/build/modules)
if(NOT output MATCHES "Hello says hello")
  message(SEND_ERROR "the host without CMake said: ${output}")
endif()

# --- The packages ---------------------------------------------------------------------------------

file(MAKE_DIRECTORY ${WORK}/packages ${WORK}/unpacked)
run("cpack" ${CMAKE_CPACK_COMMAND} --config ${BUILD}/CPackConfig.cmake -B ${WORK}/packages)
file(GLOB packages ${WORK}/packages/*.deb ${WORK}/packages/*.zip)
set(top ${WORK}/unpacked/usr)
foreach(package IN LISTS packages)
  if(package MATCHES "/([^/]+)\\.zip$")
    file(ARCHIVE_EXTRACT INPUT ${package} DESTINATION ${WORK}/unpacked)
    set(top ${WORK}/unpacked/${CMAKE_MATCH_1})
  else()
    run("unpack ${package}" dpkg-deb -x ${package} ${WORK}/unpacked)
    run("fields of ${package}" dpkg-deb -f ${package} Package Depends)
    string(APPEND fields "${output}")
  endif()
endforeach()
if(NOT EMULATOR)
  foreach(wanted "Package: ossira\nDepends: ossira-runtime \\(= [0-9.]+\\), libc6 \\(>= "
                 "Package: ossira-dev\nDepends: ossira-runtime \\(= "
                 "Package: ossira-runtime\nDepends: libc6 \\(>= [^\n]*libstdc\\+\\+6 \\(>= "
                 "Package: ossira-runtime-dbgsym\nDepends: ossira-runtime \\(= ")
    if(NOT fields MATCHES "${wanted}")
      message(SEND_ERROR "no package has: ${wanted}\n${fields}")
    endif()
  endforeach()
endif()

# Debian keeps what is for the debugger elsewhere.
file(GLOB_RECURSE installed RELATIVE ${WORK}/moved ${WORK}/moved/*)
file(GLOB_RECURSE packaged RELATIVE ${top} ${top}/*)
if(NOT EMULATOR)
  list(TRANSFORM installed REPLACE "^lib/(.*-gdb.py)$" "share/gdb/auto-load/usr/lib/\\1")
  list(TRANSFORM packaged REPLACE "^lib/debug/.build-id/../[0-9a-f]+"
      "lib/.debug/TavrikOssira.dll")
endif()
list(SORT installed)
list(SORT packaged)
if(NOT installed STREQUAL packaged)
  message(SEND_ERROR "installed\n  ${installed}\nand packaged\n  ${packaged}")
endif()
# A project that the packaged tool begins builds with the package as it stands.
set(tool ${EMULATOR} ${top}/bin/ossira${EXECUTABLE_SUFFIX})
run("new-module" ${CMAKE_COMMAND} -E chdir ${WORK} ${tool} new-module Fresh)
run("configure Fresh" ${CMAKE_COMMAND} -S ${WORK}/Fresh -B ${WORK}/Fresh/build -G Ninja
    -DCMAKE_BUILD_TYPE=Release -DOssira_ROOT=${top} -DCMAKE_FIND_ROOT_PATH=${top} ${toolchain})
run("build Fresh" ${CMAKE_COMMAND} --build ${WORK}/Fresh/build)
run("run Fresh" ${CMAKE_COMMAND} -E chdir ${WORK} ${tool} run Fresh/build/modules)
if(NOT output MATCHES "Fresh")
  message(SEND_ERROR "the tool said of the new module: ${output}")
endif()
