# Helpers of the package tests: run a step and fail with its output.

# step(<what> <command>...): runs the command; on failure stops the test with
# its output. The output is left in STEP_OUTPUT.
function(step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${what} failed (${code}):\n${output}")
  endif()
  set(STEP_OUTPUT "${output}" PARENT_SCOPE)
endfunction()

# expect_output(<what> <text>...): each text appears in the last step's output.
function(expect_output what)
  foreach(line IN LISTS ARGN)
    string(FIND "${STEP_OUTPUT}" "${line}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "${what}: no \"${line}\" in its output:\n${STEP_OUTPUT}")
    endif()
  endforeach()
endfunction()
