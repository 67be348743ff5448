# Compiles every .java file under SOURCE_DIRS (a ;-list) into CLASS_DIR, keeping parameter
# names (-parameters), and packs the classes into JAR_FILE. Run with cmake -P; the file
# list is only known after SWIG ran, hence a script rather than a fixed source list.
#   JAVAC, JAR, SOURCE_DIRS, CLASS_DIR, JAR_FILE, [CLASSPATH], [RELEASE],
#   [MAIN_CLASS and MANIFEST_CLASS_PATH (space-separated) for a runnable jar],
#   [RESOURCE_DIR: files copied into the jar as they lie, e.g. META-INF/...]
file(REMOVE_RECURSE "${CLASS_DIR}")
file(MAKE_DIRECTORY "${CLASS_DIR}")
include(${CMAKE_CURRENT_LIST_DIR}/java_sources.cmake)
vqfe_java_sources_file("${SOURCE_DIRS}" "${CLASS_DIR}.sources")
set(release_args "")
if(RELEASE)
  set(release_args --release ${RELEASE})
endif()
set(cp_args "")
if(CLASSPATH)
  set(cp_args -classpath "${CLASSPATH}")
endif()
execute_process(
  COMMAND "${JAVAC}" ${release_args} -parameters -Xlint:-options -encoding UTF-8 -nowarn ${cp_args} -d "${CLASS_DIR}" "@${CLASS_DIR}.sources"
  RESULT_VARIABLE javac_result)
if(NOT javac_result EQUAL 0)
  message(FATAL_ERROR "javac failed (${javac_result})")
endif()
if(RESOURCE_DIR)
  file(COPY "${RESOURCE_DIR}/" DESTINATION "${CLASS_DIR}")
endif()
if(MAIN_CLASS)
  file(WRITE "${CLASS_DIR}.manifest" "Main-Class: ${MAIN_CLASS}\nClass-Path: ${MANIFEST_CLASS_PATH}\n")
  execute_process(COMMAND "${JAR}" cfm "${JAR_FILE}" "${CLASS_DIR}.manifest" -C "${CLASS_DIR}" . RESULT_VARIABLE jar_result)
else()
  execute_process(COMMAND "${JAR}" cf "${JAR_FILE}" -C "${CLASS_DIR}" . RESULT_VARIABLE jar_result)
endif()
if(NOT jar_result EQUAL 0)
  message(FATAL_ERROR "jar failed (${jar_result})")
endif()
