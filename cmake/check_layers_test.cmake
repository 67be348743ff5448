# The layer check catches what it is for: on a copy of korvid/src, an include of a higher
# layer, a bare include of another folder's header and a file outside the layer folders
# each fail it by name, and the copy as it is passes.
# Run with cmake -P: -DSOURCE_DIR=<project root> -DWORK_DIR=<scratch folder>
cmake_minimum_required(VERSION 3.25)

function(run_check expect_failure)
  execute_process(COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${WORK_DIR} -P ${SOURCE_DIR}/cmake/check_layers.cmake
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  set(check_output "${out}${err}" PARENT_SCOPE)
  if(expect_failure AND rc EQUAL 0)
    message(FATAL_ERROR "the layer check passed a planted fault:\n${out}${err}")
  elseif(NOT expect_failure AND NOT rc EQUAL 0)
    message(FATAL_ERROR "the layer check failed the sources as they are:\n${out}${err}")
  endif()
endfunction()

function(fresh_copy)
  file(REMOVE_RECURSE ${WORK_DIR})
  file(COPY ${SOURCE_DIR}/korvid/src DESTINATION ${WORK_DIR}/korvid)
endfunction()

fresh_copy()
run_check(FALSE)

set(src ${WORK_DIR}/korvid/src)
foreach(plant "model/network.h|#include \"dnn/letterbox.h\"" "graph/node.h|#include \"nodes/node_types.h\""
              "dnn/letterbox.h|#include \"graph/execute_memo.h\"" "dnn/face_mesh.h|#include \"letterbox.h\"")
  string(REPLACE "|" ";" plant "${plant}")
  list(GET plant 0 file)
  list(GET plant 1 line)
  fresh_copy()
  file(APPEND ${src}/${file} "${line}\n")
  run_check(TRUE)
  string(FIND "${check_output}" "korvid/src/${file}: ${line}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the layer check did not name ${file}: ${line}:\n${check_output}")
  endif()
endforeach()

fresh_copy()
file(WRITE ${src}/stray.cpp "")
run_check(TRUE)
string(FIND "${check_output}" "korvid/src/stray.cpp: not in a layer folder" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the layer check did not name the file outside the layers:\n${check_output}")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
