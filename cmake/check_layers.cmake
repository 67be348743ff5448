# Keeps the components' dependencies one way. Fails when a production file (header,
# source, table or SWIG interface; tests excluded) of a component includes a header of a
# component that is not below it, or any test helper of testing/.
# Run with cmake -P: -DSOURCE_DIR=<project root>
cmake_minimum_required(VERSION 3.25)
#
# The components, bottom to top, with the folders each one may include besides its own:
set(below_encoding "")
set(below_vantor "")
set(below_extractor "encoding;vantor")
set(below_cache "extractor;encoding;vantor")
set(below_jni "cache;extractor;encoding;vantor")
set(below_library "cache;extractor;encoding;vantor")
set(below_tools "library;jni;cache;extractor;encoding;vantor")
set(components encoding vantor extractor cache jni library tools)
set(checked_folders ${components} testing bench fuzz reliability)

set(violations "")
set(files_checked 0)
foreach(component IN LISTS components)
  file(GLOB_RECURSE files RELATIVE ${SOURCE_DIR}
       ${SOURCE_DIR}/${component}/*.h ${SOURCE_DIR}/${component}/*.cpp
       ${SOURCE_DIR}/${component}/*.def ${SOURCE_DIR}/${component}/*.i)
  foreach(file IN LISTS files)
    if(file MATCHES "_test\\.cpp$" OR file MATCHES "/(testing|javatest)/")
      continue()
    endif()
    math(EXPR files_checked "${files_checked} + 1")
    file(STRINGS ${SOURCE_DIR}/${file} includes REGEX "^[ \t]*[#%]include[ \t]+\"[^\"/]+/")
    foreach(line IN LISTS includes)
      string(REGEX REPLACE "^[ \t]*[#%]include[ \t]+\"([^\"/]+)/.*" "\\1" folder "${line}")
      if(folder STREQUAL component OR NOT folder IN_LIST checked_folders OR folder IN_LIST below_${component})
        continue()
      endif()
      string(STRIP "${line}" line)
      list(APPEND violations "${file}: ${line}")
    endforeach()
  endforeach()
endforeach()

# The open framework's sources (korvid/src) are layered too, one folder per layer, bottom to
# top: model (model blocks, bundles, parameter files, network loading and checks, the error
# type), dnn (one wrapper per network), graph (JSON, graph definition and wiring, the node
# base, the execute memo), nodes (the analyses), system (the SDK implementation). They
# include each other as "<layer>/<file>.h"; a bare name is only the generated
# network_declarations.h, which counts as dnn.
set(korvid_layers model dnn graph nodes system)
set(korvid_below_model "")
set(korvid_below_dnn "model")
set(korvid_below_graph "model")
set(korvid_below_nodes "graph;dnn;model")
set(korvid_below_system "nodes;graph;dnn;model")
file(GLOB_RECURSE files RELATIVE ${SOURCE_DIR}/korvid/src ${SOURCE_DIR}/korvid/src/*.h ${SOURCE_DIR}/korvid/src/*.cpp)
foreach(file IN LISTS files)
  string(REGEX REPLACE "/.*" "" layer "${file}")
  if(NOT layer IN_LIST korvid_layers)
    list(APPEND violations "korvid/src/${file}: not in a layer folder (model, dnn, graph, nodes, system)")
    continue()
  endif()
  if(file MATCHES "_test\\.cpp$")
    continue()
  endif()
  math(EXPR files_checked "${files_checked} + 1")
  file(STRINGS ${SOURCE_DIR}/korvid/src/${file} includes REGEX "^[ \t]*#include[ \t]+\"")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^[ \t]*#include[ \t]+\"([^\"]*)\".*" "\\1" header "${line}")
    if(header STREQUAL "network_declarations.h")
      set(folder dnn)
    elseif(NOT header MATCHES "/")
      string(STRIP "${line}" line)
      list(APPEND violations "korvid/src/${file}: ${line} (include as \"<layer>/<file>.h\")")
      continue()
    else()
      string(REGEX REPLACE "/.*" "" folder "${header}")
    endif()
    if(folder STREQUAL layer OR NOT folder IN_LIST korvid_layers OR folder IN_LIST korvid_below_${layer})
      continue()
    endif()
    string(STRIP "${line}" line)
    list(APPEND violations "korvid/src/${file}: ${line}")
  endforeach()
endforeach()

if(violations)
  list(JOIN violations "\n  " text)
  message(FATAL_ERROR "includes against the layering (see cmake/check_layers.cmake):\n  ${text}")
endif()
message(STATUS "${files_checked} production files include only their own or lower components and layers")
