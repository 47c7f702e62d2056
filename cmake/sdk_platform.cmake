# The device's platform libraries from an SDK's staging folder
# (MUTILS_PB_SDK_ROOT, with usr/include and usr/lib), as imported targets
# under the names the host stand-ins carry, so the module links the same way
# against either.
if(NOT IS_DIRECTORY "${MUTILS_PB_SDK_ROOT}")
  message(FATAL_ERROR "MUTILS_PB_PLATFORM=sdk needs MUTILS_PB_SDK_ROOT, the SDK's staging folder")
endif()

set(_sdk_find NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
foreach(_h zp_ipc.h qmi_client.h)
  string(MAKE_C_IDENTIFIER "MUTILS_PB_SDK_INC_${_h}" _var)
  find_path(${_var} ${_h} PATHS "${MUTILS_PB_SDK_ROOT}/usr/include" "${MUTILS_PB_SDK_ROOT}/include" ${_sdk_find})
  if(NOT ${_var})
    message(FATAL_ERROR "${_h} not found in ${MUTILS_PB_SDK_ROOT}")
  endif()
  list(APPEND _sdk_includes "${${_var}}")
endforeach()
list(REMOVE_DUPLICATES _sdk_includes)

foreach(_lib sdkipc sdkmem zpdebug zpnv qmi_cci qmiidl qmiservices)
  find_library(MUTILS_PB_SDK_LIB_${_lib} ${_lib}
    PATHS "${MUTILS_PB_SDK_ROOT}/usr/lib" "${MUTILS_PB_SDK_ROOT}/lib" ${_sdk_find})
  if(NOT MUTILS_PB_SDK_LIB_${_lib})
    message(FATAL_ERROR "lib${_lib} not found in ${MUTILS_PB_SDK_ROOT}")
  endif()
  add_library(${_lib} SHARED IMPORTED)
  set_target_properties(${_lib} PROPERTIES
    IMPORTED_LOCATION "${MUTILS_PB_SDK_LIB_${_lib}}"
    INTERFACE_INCLUDE_DIRECTORIES "${_sdk_includes}")
endforeach()
