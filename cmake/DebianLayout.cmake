# Run by CPack before it makes the .deb files. GDB reads printers by itself only from folders that its
# user trusts; the system's are below /usr/share/gdb/auto-load. Debug information has a place of its
# own as well.
function(move component from folder)
  set(staged ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)
  if(EXISTS ${staged}/${from})
    get_filename_component(name ${from} NAME)
    file(MAKE_DIRECTORY ${staged}/${folder})
    file(RENAME ${staged}/${from} ${staged}/${folder}/${name})
    get_filename_component(left ${staged}/${from} DIRECTORY)
    file(GLOB others ${left}/*)
    if(NOT others)
      file(REMOVE_RECURSE ${left})
    endif()
  endif()
endfunction()
move(runtime lib/TavrikOssira.dll-gdb.py share/gdb/auto-load/usr/lib)
move(debug lib/.debug/TavrikOssira.dll.debug lib/debug/usr/lib)
