# The web benchmark runs the simulator daemon, the host process and pbweb,
# and serves a reference answer with libmicrohttpd itself.
add_dependencies(${_name} pb_host pbm_simd pbweb)
target_compile_definitions(${_name} PRIVATE
  PB_HOST_BIN="$<TARGET_FILE:pb_host>"
  PBM_SIMD_BIN="$<TARGET_FILE:pbm_simd>"
  PBWEB_BIN="$<TARGET_FILE:pbweb>")
# pbweb is started and asked as its API test does it.
target_include_directories(${_name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/ui/pbweb)
target_include_directories(${_name} PRIVATE "${MHD_INCLUDE_DIR}")
target_link_libraries(${_name} PRIVATE "${MHD_LIBRARY}")
