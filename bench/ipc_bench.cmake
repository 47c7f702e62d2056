target_link_libraries(${_name} PRIVATE sdkipc)
