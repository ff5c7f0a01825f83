# Compiles a source with each of its mistakes: without one it compiles, with one the compiler says
# which. Another mistake is a source that does not compile for another reason.
function(expect mistake texts)
  execute_process(
      COMMAND ${CXX} -std=c++20 -fsyntax-only -I${INCLUDES} -DOSSIRA_MISTAKE=${mistake} ${SOURCE}
      RESULT_VARIABLE result ERROR_VARIABLE said)
  if((mistake EQUAL 0 AND NOT result EQUAL 0) OR (mistake GREATER 0 AND result EQUAL 0))
    message(FATAL_ERROR "Mistake ${mistake}: the compiler answered ${result}\n${said}")
  endif()
  foreach(text IN LISTS texts)
    if(NOT said MATCHES "${text}")
      message(FATAL_ERROR "Mistake ${mistake}: no \"${text}\" in\n${said}")
    endif()
  endforeach()
endfunction()

set(omitted "OSSIRA_INTERFACES leaves out an interface that the class derives from")
expect(0 "")
expect(1 "A class needs an identifier of its own")
expect(2 "${omitted};ITouchModifiedChain;T_Mistaken")
expect(3 "${omitted};IObjectName;T_Mistaken")
execute_process(COMMAND ${CXX} --version OUTPUT_VARIABLE compiler)
if(NOT compiler MATCHES "clang") # which does not tell what the bases of a class are
  expect(4 "${omitted};IOwn;T_Mistaken")
endif()
expect(5 "A class needs an identifier of its own")
