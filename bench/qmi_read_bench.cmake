# The read benchmark runs the simulated modem in-process.
target_link_libraries(${_name} PRIVATE pbm_sim pbui mutils_pb_static)
# The forwarded indications' queue is the PBM client test's.
target_include_directories(${_name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/qmi)
