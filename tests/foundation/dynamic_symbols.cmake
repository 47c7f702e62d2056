cmake_minimum_required(VERSION 3.25)
# dynamic_symbols(<out> <nm> <library> <nm option>): the library's dynamic
# symbols that `nm -D <option>` lists, each as "<type> <name>[@version]"
# (the address, or the blank in its place, taken off).
function(dynamic_symbols out nm lib option)
  execute_process(COMMAND "${nm}" -D ${option} "${lib}" OUTPUT_VARIABLE _nm RESULT_VARIABLE _rc)
  if(NOT _rc EQUAL 0)
    message(FATAL_ERROR "${nm} failed on ${lib}")
  endif()
  string(REPLACE "\n" ";" _rows "${_nm}")
  list(FILTER _rows INCLUDE REGEX "^[0-9a-fA-F ]* [A-Za-z] ")
  list(TRANSFORM _rows REPLACE "^[0-9a-fA-F ]* ([A-Za-z] )" "\\1")
  set(${out} ${_rows} PARENT_SCOPE)
endfunction()
