# Compile and link options of this project's own targets: warnings, warnings
# as errors, sanitizers and fuzzing coverage. They are set per target, never
# directory-wide, so a parent project that adds this tree with
# add_subdirectory() or FetchContent keeps its own options, and nothing here
# reaches the targets' interfaces.

set(ZM_SANITIZE "" CACHE STRING "Sanitizers to build with: empty, address (with undefined) or thread")
set_property(CACHE ZM_SANITIZE PROPERTY STRINGS "" address thread)
if(NOT ZM_SANITIZE MATCHES "^(|address|thread)$")
  message(FATAL_ERROR "ZM_SANITIZE must be empty, address or thread, not '${ZM_SANITIZE}'")
endif()

set(_zm_gnu_like "$<OR:$<CXX_COMPILER_ID:GNU>,$<CXX_COMPILER_ID:Clang>,$<CXX_COMPILER_ID:AppleClang>>")

# zm_apply_build_options(<target>...): this project's options, on the targets' own build only.
function(zm_apply_build_options)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE $<${_zm_gnu_like}:-Wall -Wextra -Wpedantic>)
    if(ZM_WERROR)
      target_compile_options(${target} PRIVATE $<${_zm_gnu_like}:-Werror>)
    endif()
    if(ZM_SANITIZE STREQUAL "address")
      target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-sanitize-recover=all
                                               -fno-omit-frame-pointer)
      target_link_options(${target} PRIVATE -fsanitize=address,undefined -fno-sanitize-recover=all)
    elseif(ZM_SANITIZE STREQUAL "thread")
      target_compile_options(${target} PRIVATE -fsanitize=thread -fno-omit-frame-pointer)
      target_link_options(${target} PRIVATE -fsanitize=thread)
    endif()
    if(ZM_BUILD_FUZZERS)
      # Coverage for the whole code base, so that the fuzzers are guided by the
      # module's and the emulator's branches, not only by their own.
      target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
  endforeach()
endfunction()
