# Lets `ossira check` look for a fault in each copy of a sample, and for none in what has none.
function(check output)
  execute_process(COMMAND ${EMULATOR} ${OSSIRA} check ${ARGN}
      RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE complaint)
  string(REPLACE "\r" "" said "${said}")
  set(${output} "${said}${complaint}" PARENT_SCOPE)
  set(result ${result} PARENT_SCOPE)
endfunction()

check(said ${SAMPLES} ${FOLDER}/None.dll)
if(NOT result EQUAL 0 OR NOT said MATCHES "No fault found")
  message(FATAL_ERROR "Something is wrong with a sample:\n${said}")
endif()

# A fault, and the step and the words by which it is to be found; the only one where that is said.
set(faults
    "Leak|creation: every object leaves an object of the runtime alive"
    "DoubleRelease|creation: crashed: .*it was creating an object and giving it back"
    "WrongIdentity|identity: asked for IUnknown through .*answers another pointer"
    "ExtraReference|counting: [0-9]+ of the module's objects are left after IObjectName"
    "MissingInterface|categories: class \"Faulty\" is filed for start-up, level 1, and has no IBootstrap"
    "NotUnloadable|unloading: DllCanUnloadNow answers .*the module is never unloaded"
    "CrashOnNull|null arguments: crashed: .*IObjectIdentity::GetObjectClassID with null"
    "UnsafeUnderThreads|threads: .*creating objects in 4 threads"
    "ForgottenLock|threads: .*(which nobody gave it|SetObjectName of one object in|naming one object in)"
    "ExceptionLeaves|failing memory: an exception leaves IObjectName::SetObjectName"
    "StaticOutlives|unloading: the module leaves [0-9]+ objects of the runtime alive"
    "KeptLock|null arguments: did not end within .*a lock taken")
set(files)
foreach(fault IN LISTS faults)
  string(REGEX REPLACE "[|].*" "" name "${fault}")
  list(APPEND files ${FOLDER}/${name}.dll)
endforeach()
list(POP_BACK files hanging)
check(said ${files})
check(hung --time-limit 10 ${hanging})
string(APPEND said "${hung}")
if(NOT result EQUAL 1)
  message(FATAL_ERROR "The command ended with ${result}:\n${said}")
endif()
foreach(fault IN LISTS faults)
  string(REGEX MATCH "^([^|]*)[|](.*)$" ignored "${fault}")
  set(name ${CMAKE_MATCH_1})
  set(words "FAILED +${CMAKE_MATCH_2}")
  string(FIND "${said}" "${FOLDER}/${name}.dll" begin)
  string(SUBSTRING "${said}" ${begin} -1 report)
  string(REGEX REPLACE "\n[^ ].*" "" report "${report}")
  if(NOT report MATCHES "${words}")
    message(SEND_ERROR "No \"${words}\" in\n${report}")
  endif()
endforeach()
