# Fails when a public class or method of the generated proxies has no Javadoc. Run with
# cmake -P after the jar was built (javadoc reads the generated sources).
#   JAVADOC, SOURCES_FILE (the list javadoc was built from), WORK_DIR; optional
#   INCLUDE_REGEX (check only the sources it matches) and CLASSPATH
# Not checked: the native-method classes (*JNI), enum constants (each enum documents
# its values) and the array and Iterable constructors SWIG's vector library adds.
file(STRINGS "${SOURCES_FILE}" sources)
list(FILTER sources EXCLUDE REGEX "JNI\\.java$")
if(INCLUDE_REGEX)
  list(FILTER sources INCLUDE REGEX "${INCLUDE_REGEX}")
endif()
set(classpath_args "")
if(CLASSPATH)
  set(classpath_args -classpath "${CLASSPATH}")
endif()
list(JOIN sources "\n" source_lines)
file(MAKE_DIRECTORY "${WORK_DIR}")
file(WRITE "${WORK_DIR}/sources" "${source_lines}\n")
execute_process(
  COMMAND "${JAVADOC}" ${classpath_args} -public -quiet -Xdoclint:missing -Xmaxwarns 100000 -d "${WORK_DIR}/html" "@${WORK_DIR}/sources"
  OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE result)
# Lines become list items, so the output's own semicolons go first.
string(REPLACE ";" "," lines "${out}${err}")
string(REPLACE "\n" ";" lines "${lines}")
set(missing "")
set(previous "")
foreach(line IN LISTS lines)
  if(previous MATCHES "warning: no comment$"
     AND NOT line MATCHES "^  [A-Za-z0-9_]+\\(-?[0-9]+\\)[,;]"
     AND NOT line MATCHES "\\((.*\\[\\]|Iterable<.*>) initialElements\\)")
    string(REGEX REPLACE ":[0-9]+: warning: no comment$" "" where "${previous}")
    get_filename_component(where "${where}" NAME)
    string(STRIP "${line}" line)
    list(APPEND missing "${where}: ${line}")
  endif()
  set(previous "${line}")
endforeach()
if(missing)
  list(JOIN missing "\n  " text)
  message(FATAL_ERROR "public API without Javadoc:\n  ${text}")
endif()
if(NOT result EQUAL 0)
  message(FATAL_ERROR "javadoc failed (${result}):\n${err}")
endif()
