# The shared library imports nothing from the platform but the device
# functions listed here, and needs no library but the device's platform
# libraries and the C library: what the router offers. A router image often
# leaves out the C++ runtime (libstdc++, libgcc_s), so a single symbol from
# it would keep the module from loading there.
# -DLIB=<library> -DNM=<nm> -DREADELF=<readelf>
set(_device_api
  # IPC (libsdkipc)
  ipc_get_addr_by_id ipc_memory_assign ipc_gen_seesion_id ipc_msg_send_syn ipc_msg_send_asy
  ipc_mq_create ipc_mq_send ipc_mq_recv
  # memory (libsdkmem), log (libzpdebug), NV (libzpnv)
  mem_malloc_ex mem_free_ex log_print nvmram_writenv
  # QMI (libqmi_cci, libqmiidl, libqmiservices)
  pbm_get_service_object_internal_v01 qmi_client_notifier_init qmi_client_get_service_list
  qmi_client_init qmi_client_release qmi_client_send_msg_sync qmi_client_message_decode
  qmi_idl_get_message_c_struct_len)
set(_device_libs libsdkipc.so libsdkmem.so libzpdebug.so libzpnv.so libqmi_cci.so libqmiidl.so
  libqmiservices.so)
# The C library, and the parts older toolchains keep apart from it.
set(_c_runtime_libs "^(libc|libpthread|libdl|ld-linux[-a-z0-9_.]*)\\.so")
# Versions of the C++ runtime's symbols (libstdc++, and libgcc_s's unwinder).
set(_cxx_runtime_versions "@(GLIBCXX|CXXABI|GCC)_")

# Symbols of the C runtime carry "@VERSION"; weak ones ("w") are optional.
include(${CMAKE_CURRENT_LIST_DIR}/dynamic_symbols.cmake)
dynamic_symbols(_rows "${NM}" "${LIB}" --undefined-only)
set(_cxx_runtime ${_rows})
list(FILTER _cxx_runtime INCLUDE REGEX "${_cxx_runtime_versions}")
list(FILTER _rows INCLUDE REGEX "^U [^@]+$")
list(TRANSFORM _rows REPLACE "^U " "" OUTPUT_VARIABLE _imports)
set(_foreign ${_imports})
list(REMOVE_ITEM _foreign ${_device_api})
if(_foreign)
  message(FATAL_ERROR "imports beyond the device's platform functions: ${_foreign}")
endif()
if(_cxx_runtime)
  message(FATAL_ERROR "imports from the C++ runtime: ${_cxx_runtime}")
endif()

execute_process(COMMAND "${READELF}" -d "${LIB}" OUTPUT_VARIABLE _dyn RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
  message(FATAL_ERROR "${READELF} failed on ${LIB}")
endif()
string(REGEX MATCHALL "Shared library: \\[[^]]+\\]" _needed "${_dyn}")
list(TRANSFORM _needed REPLACE "Shared library: \\[([^]]+)\\]" "\\1")
set(_foreign ${_needed})
list(FILTER _foreign EXCLUDE REGEX "${_c_runtime_libs}")
list(REMOVE_ITEM _foreign ${_device_libs})
if(_foreign)
  message(FATAL_ERROR "needs libraries the router does not have: ${_foreign}")
endif()
message(STATUS "imports: ${_imports}; needs: ${_needed}")
