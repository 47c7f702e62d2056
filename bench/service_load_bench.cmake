# The load benchmark runs the simulated modem in-process, the service both
# in-process and as the host process, and reuses the tests' harness and
# forwarded-indication queue.
target_link_libraries(${_name} PRIVATE pbm_sim pbui mutils_pb)
target_include_directories(${_name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/qmi ${PROJECT_SOURCE_DIR}/tests/service)
add_dependencies(${_name} pb_host)
target_compile_definitions(${_name} PRIVATE PB_HOST_BIN="$<TARGET_FILE:pb_host>")
