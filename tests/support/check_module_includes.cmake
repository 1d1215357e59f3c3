# Fails when a source of the chat-room module includes a header of the core emulator.
file(GLOB_RECURSE sources ${ROOT}/ZMChatRoom/*.h ${ROOT}/ZMChatRoom/*.cpp)
foreach(source IN LISTS sources)
  file(STRINGS ${source} hits REGEX "#include[ \t]*[<\"]CoreEmulator/")
  if(hits)
    message(FATAL_ERROR "${source} includes the core emulator: ${hits}")
  endif()
endforeach()
