# Configures, builds and runs the add_subdirectory() consumer in WORK_DIR.
file(REMOVE_RECURSE ${WORK_DIR})
foreach(step
    "${CMAKE_COMMAND};-S;${SOURCE_DIR}/tests/packaging/consumer;-B;${WORK_DIR};-DDATABASE_INTERFACE_SOURCE_DIR=${SOURCE_DIR}"
    "${CMAKE_COMMAND};--build;${WORK_DIR};-j;2"
    "${WORK_DIR}/consumer;${WORK_DIR}/consumer.db")
  execute_process(COMMAND ${step} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${step}")
  endif()
endforeach()
