target_link_libraries(${_name} PRIVATE zpipc)
