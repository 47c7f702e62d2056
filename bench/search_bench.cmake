# pbui calls the module: it goes before the module's archive on the link line.
target_link_libraries(search_bench PRIVATE pbui mutils_pb_static)
