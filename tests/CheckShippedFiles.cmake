# Looks into the files that are given away:
#   FILES      separated by "|"
#   FORBIDDEN  texts that must not be in them, separated by "|": the folders of this machine
#   NEEDS      the libraries that they may depend on, a regular expression
#   CONTRACT   the description of the binary contract: the first file exports what it lists for the
#              runtime and for modules, every other what it lists for modules, and nothing else
#   OBJDUMP    the program that lists a file's headers
cmake_minimum_required(VERSION 3.25)
string(REPLACE "|" ";" files "${FILES}")
string(REPLACE "|" ";" forbidden "${FORBIDDEN}")
file(READ ${CONTRACT} contract)

function(headers_of file option result)
  execute_process(COMMAND ${OBJDUMP} ${option} ${file} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

foreach(file IN LISTS files)
  foreach(text IN LISTS forbidden)
    # As the beginning of a path: a short one is the middle of others.
    string(REGEX REPLACE "([][+.*()^$?|\\])" "\\\\\\1" pattern "${text}")
    file(STRINGS ${file} found REGEX "(^|[^A-Za-z0-9_./-])${pattern}/")
    if(found)
      message(SEND_ERROR "${file} contains the path ${text}: ${found}")
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
  # The system calls such a handler in every thread that throws, also while the file is unloaded.
  if(headers MATCHES "AddVectoredExceptionHandler")
    message(SEND_ERROR "${file} registers a handler of exceptions: it uses the thread library")
  endif()
endforeach()

# What the contract has for a `module`, or for the `runtime` beside that.
function(append_contract_exports kind list)
  string(JSON count LENGTH "${contract}" exports ${kind})
  math(EXPR last "${count} - 1")
  foreach(at RANGE ${last})
    string(JSON name GET "${contract}" exports ${kind} ${at} name)
    list(APPEND ${list} ${name})
  endforeach()
  list(SORT ${list})
  set(${list} ${${list}} PARENT_SCOPE)
endfunction()

function(exports_of file result)
  set(exports)
  headers_of(${file} -p headers)
  if(headers MATCHES "Ordinal/Name Pointer")
    string(REGEX REPLACE ".*Ordinal/Name Pointer\\] Table" "" headers "${headers}")
    string(REGEX MATCHALL "\\[ *[0-9]+\\] [A-Za-z_]+" lines "${headers}")
  else()
    headers_of(${file} -T symbols)
    string(REGEX MATCHALL "[^\n]*g +D[FO] +\\.[^\n]*" lines "${symbols}")
  endif()
  foreach(line IN LISTS lines)
    string(REGEX REPLACE ".* " "" name "${line}")
    list(APPEND exports ${name})
  endforeach()
  list(FILTER exports EXCLUDE REGEX "^(ABSOLUTE|DIR)$") # of the relocation table
  list(SORT exports)
  set(${result} ${exports} PARENT_SCOPE)
endfunction()

append_contract_exports(module modules)
set(expected ${modules})
append_contract_exports(runtime expected) # of the first file
foreach(file IN LISTS files)
  exports_of(${file} exports)
  if(NOT exports STREQUAL expected)
    message(SEND_ERROR "${file} exports\n  ${exports}\nand should export\n  ${expected}")
  endif()
  set(expected ${modules})
endforeach()
