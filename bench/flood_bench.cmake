# The flood benchmark runs the simulated modem in-process and pb_host as a
# child, with the service end-to-end test's flood.
add_dependencies(${_name} pb_host)
target_link_libraries(${_name} PRIVATE pbm_sim pbui mutils_pb)
target_include_directories(${_name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/service)
target_compile_definitions(${_name} PRIVATE PB_HOST_BIN="$<TARGET_FILE:pb_host>")
