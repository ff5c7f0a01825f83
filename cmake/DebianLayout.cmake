# Run by CPack before it makes the .deb files. GDB reads printers by itself only from folders that its
# user trusts; the system's are below /usr/share/gdb/auto-load. Debug information lies where GDB finds
# it by the library's build id, under whatever name the library was loaded.
function(move component from to)
  set(staged ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)
  if(EXISTS ${staged}/${from})
    get_filename_component(folder ${staged}/${to} DIRECTORY)
    file(MAKE_DIRECTORY ${folder})
    file(RENAME ${staged}/${from} ${staged}/${to})
    get_filename_component(left ${staged}/${from} DIRECTORY)
    file(GLOB others ${left}/*)
    if(NOT others)
      file(REMOVE_RECURSE ${left})
    endif()
  endif()
endfunction()

move(runtime lib/TavrikOssira.dll-gdb.py share/gdb/auto-load/usr/lib/TavrikOssira.dll-gdb.py)
set(information lib/.debug/TavrikOssira.dll.debug)
if(EXISTS ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/debug/usr/${information})
  execute_process(
      COMMAND readelf -n ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/debug/usr/${information}
      OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
  if(NOT notes MATCHES "Build ID: (..)([0-9a-f]+)")
    message(FATAL_ERROR "The debug information has no build id")
  endif()
  move(debug ${information} lib/debug/.build-id/${CMAKE_MATCH_1}/${CMAKE_MATCH_2}.debug)
endif()
