# vqfe_check_export_policy(<symbols> <expected file> <left-out classes>): the export policy
# of libExtractorJni.so. The Java_* natives among the exported symbols are exactly the names
# listed in the expected file (one per line, '#' comments allowed) less the natives of the
# left-out classes (stores a build leaves out); every other exported symbol is a generated
# message function or descriptor (c__*), a decode helper (*_alloc / *_free) or a CoverUtil
# blob helper. Fails the script with the differences.
function(vqfe_check_export_policy symbols expected_file left_out)
  set(exported_natives "")
  set(unexpected "")
  foreach(symbol IN LISTS symbols)
    if(symbol MATCHES "^Java_")
      list(APPEND exported_natives "${symbol}")
    elseif(symbol MATCHES "^c__" OR symbol MATCHES "_alloc$" OR symbol MATCHES "_free$"
           OR symbol MATCHES "^_ZN9VQFeature9CoverUtil(16getMemoryAddress|13releaseObject)EPcm$")
    else()
      list(APPEND unexpected "${symbol}")
    endif()
  endforeach()

  file(STRINGS "${expected_file}" expected_lines)
  set(expected "")
  foreach(line IN LISTS expected_lines)
    string(STRIP "${line}" line)
    if(line STREQUAL "" OR line MATCHES "^#")
      continue()
    endif()
    list(APPEND expected "${line}")
  endforeach()
  # A class's natives: new_<Class>, delete_<Class> and <Class>_<member> ('_' escaped as _1).
  foreach(class IN LISTS left_out)
    list(FILTER expected EXCLUDE REGEX "JNI_((new|delete)_1${class}|${class}_1.*)$")
  endforeach()

  set(missing ${expected})
  list(REMOVE_ITEM missing ${exported_natives})
  set(extra ${exported_natives})
  list(REMOVE_ITEM extra ${expected})
  list(LENGTH expected expected_count)
  list(LENGTH exported_natives exported_count)
  message(STATUS "${exported_count} natives exported, ${expected_count} expected")
  vqfe_report_symbols("${missing}" "natives not exported")
  vqfe_report_symbols("${extra}" "natives exported but not expected")
  vqfe_report_symbols("${unexpected}" "symbols exported outside the export policy")
  if(missing OR extra OR unexpected)
    message(FATAL_ERROR "export check failed")
  endif()
endfunction()

# Reports the symbols (when there are any) under the title, failing the script at its end.
function(vqfe_report_symbols symbols title)
  if(symbols)
    list(JOIN symbols "\n  " text)
    message(SEND_ERROR "${title}:\n  ${text}")
  endif()
endfunction()
