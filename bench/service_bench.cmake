# The service benchmark runs the modem simulator daemon and the host process.
add_dependencies(${_name} pb_host pbm_simd)
target_compile_definitions(${_name} PRIVATE
  PB_HOST_BIN="$<TARGET_FILE:pb_host>"
  PBM_SIMD_BIN="$<TARGET_FILE:pbm_simd>")
