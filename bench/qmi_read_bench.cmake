# The read benchmark runs the simulated modem in-process.
target_link_libraries(${_name} PRIVATE pbm_sim)
