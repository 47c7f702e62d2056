target_link_libraries(${_name} PRIVATE pbweb_parse)
