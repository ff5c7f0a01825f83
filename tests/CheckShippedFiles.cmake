# Looks into the files that are given away:
#   FILES      separated by "|"
#   FORBIDDEN  texts that must not be in them, separated by "|": the folders of this machine
#   NEEDS      the libraries that they may depend on, a regular expression
#   EXPORTS    what the first of them exports, separated by "|", and nothing else
#   OBJDUMP    the program that lists a file's headers
cmake_minimum_required(VERSION 3.25)
string(REPLACE "|" ";" files "${FILES}")
string(REPLACE "|" ";" forbidden "${FORBIDDEN}")
string(REPLACE "|" ";" expectedExports "${EXPORTS}")

function(headers_of file option result)
  execute_process(COMMAND ${OBJDUMP} ${option} ${file} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

foreach(file IN LISTS files)
  file(STRINGS ${file} texts)
  foreach(text IN LISTS forbidden)
    string(FIND "${texts}" "${text}" position)
    if(NOT position EQUAL -1)
      message(SEND_ERROR "${file} contains the path ${text}")
    endif()
  endforeach()

  headers_of(${file} -p headers)
  string(REGEX MATCHALL "(DLL Name:|NEEDED) +[^\r\n]+" needs "${headers}")
  if(NOT needs)
    message(SEND_ERROR "${file} seems to depend on nothing at all")
  endif()
  foreach(need IN LISTS needs)
    string(REGEX REPLACE "^(DLL Name:|NEEDED) +" "" library "${need}")
    if(NOT library MATCHES "^(${NEEDS})$")
      message(SEND_ERROR "${file} depends on ${library}")
    endif()
  endforeach()
endforeach()

list(GET files 0 runtime)
headers_of(${runtime} -p headers)
if(headers MATCHES "Ordinal/Name Pointer")
  string(REGEX REPLACE ".*Ordinal/Name Pointer\\] Table" "" headers "${headers}")
  string(REGEX MATCHALL "\\[ *[0-9]+\\] [A-Za-z_]+" lines "${headers}")
else()
  headers_of(${runtime} -T symbols)
  string(REGEX MATCHALL "[^\n]*g +D[FO] +\\.[^\n]*" lines "${symbols}")
endif()
foreach(line IN LISTS lines)
  string(REGEX REPLACE ".* " "" name "${line}")
  list(APPEND exports ${name})
endforeach()
list(FILTER exports EXCLUDE REGEX "^(ABSOLUTE|DIR)$") # of the relocation table
list(SORT exports)
list(SORT expectedExports)
if(NOT exports STREQUAL expectedExports)
  message(SEND_ERROR "${runtime} exports\n  ${exports}\nand should export\n  ${expectedExports}")
endif()
