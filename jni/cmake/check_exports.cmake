# Checks the dynamic symbol table of libExtractorJni.so against the export policy
# (export_policy.cmake).
#   NM, LIBRARY, EXPECTED
include(${CMAKE_CURRENT_LIST_DIR}/export_policy.cmake)
execute_process(COMMAND "${NM}" -D --defined-only --format=posix "${LIBRARY}"
  OUTPUT_VARIABLE nm_out RESULT_VARIABLE nm_result)
if(NOT nm_result EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" nm_lines "${nm_out}")
set(symbols "")
foreach(line IN LISTS nm_lines)
  if(NOT line STREQUAL "")
    string(REGEX REPLACE " .*" "" symbol "${line}")
    list(APPEND symbols "${symbol}")
  endif()
endforeach()
vqfe_check_export_policy("${symbols}" "${EXPECTED}" "")
