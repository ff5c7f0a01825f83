# Stops a program in GDB and compares what a person reads of its variables with
# what is expected, and with what the documents show. Parameters: GDB, PROGRAM, FOLDER (which GDB may
# load printers from), EXPECTED and SHOWN (files of lines).
execute_process(
    COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C.UTF-8 ${GDB} -nx -q -batch -iex "set auto-load safe-path ${FOLDER}" -ex "set width 0"
            -ex "break LookHere" -ex run -ex up -ex "info locals"
            -ex "print $ossira_count(text)"
            -ex "set print elements unlimited" -ex "print many" ${PROGRAM}
    OUTPUT_VARIABLE shown ERROR_VARIABLE shown)
file(STRINGS ${EXPECTED} expected ENCODING UTF-8)
file(STRINGS ${SHOWN} lines ENCODING UTF-8)
foreach(line IN LISTS lines expected ITEMS "$1 = 2")
  string(FIND "${shown}" "\n${line}\n" position)
  if(position EQUAL -1)
    message(SEND_ERROR "GDB does not show: ${line}")
    set(missing ON)
  endif()
endforeach()
# A table of so many entries has its segments; each is read, and none twice.
string(REGEX MATCHALL "\\[0[0-9A-F]+-0000-0000-0000-000000000000\\] = Value, count" keys "${shown}")
list(REMOVE_DUPLICATES keys)
list(LENGTH keys count)
if(NOT count EQUAL 1000)
  message(SEND_ERROR "GDB shows ${count} keys of a dictionary")
  set(missing ON)
endif()
if(missing)
  message("${shown}")
endif()
