# Checks libExtractorJni.so as a device loads it, from the ELF file (readelf):
# - every LOAD segment aligned to at least 16 KB (devices with 16 KB pages refuse less);
# - no text relocations (no TEXTREL entry, no TEXTREL flag);
# - no NEEDED entry naming one of FORBIDDEN_NEEDED (libraries linked in or left out);
# - the exports of the desktop library (export_policy.cmake), less LEFT_OUT's natives.
#   READELF, LIBRARY, EXPECTED, LEFT_OUT (class names), FORBIDDEN_NEEDED (library names)
include(${CMAKE_CURRENT_LIST_DIR}/export_policy.cmake)

function(vqfe_readelf out)
  execute_process(COMMAND "${READELF}" -W ${ARGN} "${LIBRARY}"
    OUTPUT_VARIABLE text ERROR_VARIABLE errors RESULT_VARIABLE result)
  if(NOT result EQUAL 0 OR NOT errors STREQUAL "")
    message(FATAL_ERROR "readelf ${ARGN} failed on ${LIBRARY}: ${errors}")
  endif()
  string(REPLACE ";" "\\;" text "${text}")
  string(REPLACE "\n" ";" lines "${text}")
  set(${out} "${lines}" PARENT_SCOPE)
endfunction()

set(problems "")

vqfe_readelf(headers --program-headers)
set(loads 0)
foreach(line IN LISTS headers)
  # LOAD  offset vaddr paddr filesz memsz flags align (flags may hold spaces: "R E")
  if(line MATCHES "^ *LOAD .* (0x[0-9a-fA-F]+)$")
    math(EXPR loads "${loads} + 1")
    set(align "${CMAKE_MATCH_1}")
    math(EXPR align_value "${align}")
    if(align_value LESS 16384)
      list(APPEND problems "LOAD segment aligned to ${align}, less than 0x4000: ${line}")
    endif()
  endif()
endforeach()
if(loads EQUAL 0)
  list(APPEND problems "no LOAD segment found")
endif()

vqfe_readelf(dynamic --dynamic)
foreach(line IN LISTS dynamic)
  if(line MATCHES "\\(TEXTREL\\)" OR line MATCHES "\\(FLAGS\\).*TEXTREL")
    list(APPEND problems "text relocations: ${line}")
  endif()
  if(line MATCHES "\\(NEEDED\\).*\\[(.*)\\]")
    set(needed "${CMAKE_MATCH_1}")
    foreach(name IN LISTS FORBIDDEN_NEEDED)
      if(needed MATCHES "^${name}\\.so")
        list(APPEND problems "needs ${needed}")
      endif()
    endforeach()
  endif()
endforeach()

if(problems)
  list(JOIN problems "\n  " text)
  message(SEND_ERROR "${LIBRARY}:\n  ${text}")
endif()

# Defined global and weak symbols of the dynamic symbol table:
#   Num: Value Size Type Bind Vis Ndx Name[@version]
vqfe_readelf(dynsyms --dyn-syms)
set(symbols "")
foreach(line IN LISTS dynsyms)
  if(line MATCHES "^ *[0-9]+: [0-9a-f]+ +[0-9x]+ [A-Z_]+ +(GLOBAL|WEAK) +[A-Z]+ +([0-9]+|ABS) +([^ @]+)")
    list(APPEND symbols "${CMAKE_MATCH_3}")
  endif()
endforeach()
vqfe_check_export_policy("${symbols}" "${EXPECTED}" "${LEFT_OUT}")
if(problems)
  message(FATAL_ERROR "device library check failed")
endif()
list(JOIN FORBIDDEN_NEEDED ", " forbidden)
message(STATUS "${loads} LOAD segments aligned to 16 KB or more, no text relocations, none of ${forbidden} needed")
