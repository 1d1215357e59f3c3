# Fails when a source of the chat-room module includes a header of the core
# emulator or of the test kit, or a source of the emulator one of the test kit:
# the kit builds on both, never the other way round.
function(check_includes what pattern)
  file(GLOB_RECURSE sources ${ARGN})
  foreach(source IN LISTS sources)
    file(STRINGS ${source} hits REGEX "#include[ \t]*[<\"](${pattern})/")
    if(hits)
      message(FATAL_ERROR "${source} includes ${what}: ${hits}")
    endif()
  endforeach()
endfunction()

check_includes("the core emulator or the test kit" "CoreEmulator|ZMChatRoomTestKit"
               ${ROOT}/ZMChatRoom/*.h ${ROOT}/ZMChatRoom/*.cpp)
check_includes("the test kit" "ZMChatRoomTestKit" ${ROOT}/CoreEmulator/*.h ${ROOT}/CoreEmulator/*.cpp)
