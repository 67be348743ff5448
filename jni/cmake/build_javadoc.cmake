# Runs javadoc over every .java file under SOURCE_DIRS (a ;-list) into DOC_DIR and packs
# the pages into JAR_FILE. Run with cmake -P (the file list is only known after SWIG ran).
#   JAVADOC, JAR, SOURCE_DIRS, DOC_DIR, JAR_FILE; optional CLASSPATH (what the sources use)
file(REMOVE_RECURSE "${DOC_DIR}")
file(MAKE_DIRECTORY "${DOC_DIR}")
include(${CMAKE_CURRENT_LIST_DIR}/java_sources.cmake)
vqfe_java_sources_file("${SOURCE_DIRS}" "${DOC_DIR}.sources")
set(classpath_args "")
if(CLASSPATH)
  set(classpath_args -classpath "${CLASSPATH}")
endif()
execute_process(
  COMMAND "${JAVADOC}" ${classpath_args} -quiet -notimestamp -encoding UTF-8 -Xdoclint:none -windowtitle "VQFE Java API"
          -d "${DOC_DIR}" "@${DOC_DIR}.sources"
  RESULT_VARIABLE javadoc_result)
if(NOT javadoc_result EQUAL 0)
  message(FATAL_ERROR "javadoc failed (${javadoc_result})")
endif()
execute_process(COMMAND "${JAR}" cf "${JAR_FILE}" -C "${DOC_DIR}" . RESULT_VARIABLE jar_result)
if(NOT jar_result EQUAL 0)
  message(FATAL_ERROR "jar failed (${jar_result})")
endif()
