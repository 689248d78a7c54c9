# Runs COMMAND with a fresh DIRECTORY; fails unless it ends with 0 and its output matches EXPECTED.
file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY})
execute_process(COMMAND ${COMMAND} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
message("${output}")
if(NOT result EQUAL 0 OR NOT output MATCHES "${EXPECTED}")
  message(FATAL_ERROR "exit status ${result}; the output should match: ${EXPECTED}")
endif()
