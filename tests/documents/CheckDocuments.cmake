# Runs what the documents show and compares: what a document shows is printed, as one piece. Numbers of
# lines are left out, and the number of threads, which is the machine's. The working folder is that of
# the programs. Parameters: SNIPPETS, EMULATOR, SUFFIX.
cmake_minimum_required(VERSION 3.25)

# `documents` are what one run prints.
function(expect documents code program)
  execute_process(COMMAND ${EMULATOR} ${bin}/${program}${SUFFIX} ${ARGN}
      WORKING_DIRECTORY ${folder}
      RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err ENCODING UTF-8)
  if(NOT result EQUAL code)
    message(SEND_ERROR "${program} ${ARGN} ended with ${result}\n${out}\n${err}")
  endif()
  string(ASCII 7 bell)
  string(ASCII 13 return)
  set(shown "${out}\n${err}")
  string(REPLACE "${bell}" "" shown "${shown}")
  string(REPLACE "${return}" "" shown "${shown}")
  string(REGEX REPLACE "\\[([^]\n]*): *[0-9]+\\]" "[\\1: LINE]" shown "${shown}")
  string(REGEX REPLACE "\\[[^]\n]*\\.inc: LINE\\]" "[your/file.cpp: LINE]" shown "${shown}")
  string(REGEX REPLACE "pool of [0-9]+ threads" "pool of 3 threads" shown "${shown}")
  foreach(document IN LISTS documents)
    file(READ ${SNIPPETS}/${document} expected)
    string(FIND "${shown}" "${expected}" position)
    if(position EQUAL -1)
      message(SEND_ERROR "The documents show\n${expected}\nand ${program} ${ARGN} prints\n${shown}")
    endif()
  endforeach()
endfunction()

get_filename_component(bin . ABSOLUTE)
set(folder ${bin})
file(REMOVE_RECURSE ${bin}/documents-lonely)
file(COPY ${bin}/modules/Doorman.dll DESTINATION ${bin}/documents-lonely)

expect(DemoOutput.txt 0 ossira run modules)
expect("DoormanLines.txt;DoormanLine.txt" 1 ossira run documents-lonely)
expect(WeatherOutput.txt 0 ossira run readme)
expect("CounterOutput.txt;CounterLine.txt" 0 ossira run documents)
expect(HostOutput.txt 0 documents_host)
if(NOT EMULATOR) # there it goes to the debug output, which nobody but a debugger reads
  expect(OwnLines.txt 0 documents_host lines)
endif()
set(folder ${bin}/modules)
expect(ReadmeHost.txt 0 readme_host)
