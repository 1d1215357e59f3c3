# Fails when the chat-room module's shared library links a core or carries
# core code: the core's entry points must stay undefined in the module and be
# defined by the core (here the emulator) that a program links beside it.
#   -DMODULE=<libZMChatRoom> -DCORE=<libZMCoreEmulator> -DNM=<nm> -DREADELF=<readelf>

function(run out)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text ERROR_VARIABLE error RESULT_VARIABLE code)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${ARGN} failed (${code}): ${error}")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# expect(<present|absent> <text variable> <regex> <what it means>)
function(expect presence text regex meaning)
  if(${text} MATCHES "${regex}")
    set(found present)
  else()
    set(found absent)
  endif()
  if(NOT found STREQUAL presence)
    message(FATAL_ERROR "${meaning}")
  endif()
endfunction()

run(dynamic ${READELF} -d ${MODULE})
expect(absent dynamic "NEEDED[^\n]*ZMCoreEmulator" "${MODULE} links the core emulator")
expect(present dynamic "NEEDED[^\n]*ZMPlatform" "${MODULE} does not link the platform library")

# Entry points of the core that the module calls: the kernel and the logger.
run(module_undefined ${NM} -D --undefined-only ${MODULE})
run(module_defined ${NM} -D --defined-only ${MODULE})
run(core_defined ${NM} -D --defined-only ${CORE})
foreach(symbol IN ITEMS _ZN8ZMKernel14sharedInstanceEv _ZN7ZMFwLog11getInstanceEv)
  expect(present module_undefined " ${symbol}\n" "${MODULE} does not leave ${symbol} to the core")
  expect(absent module_defined " ${symbol}\n" "${MODULE} defines the core's ${symbol}")
  expect(present core_defined " ${symbol}\n" "${CORE} does not define ${symbol}")
endforeach()
