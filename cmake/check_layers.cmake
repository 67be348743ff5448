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

# Checks the production files FILES (relative to ROOT, named as PREFIX<file> in faults) of
# LAYER, one of LAYERS: each "<folder>/<file>" include must name LAYER itself, a folder
# outside LAYERS or one of BELOW. A bare "<file>" include is left alone, unless BARE_LAYER
# is given: then BARE_NAME counts as that layer and any other bare include is a fault.
# Adds to violations and files_checked.
function(check_layer_includes)
  cmake_parse_arguments(ARG "" "ROOT;PREFIX;LAYER;BARE_NAME;BARE_LAYER" "FILES;LAYERS;BELOW" ${ARGN})
  foreach(file IN LISTS ARG_FILES)
    math(EXPR files_checked "${files_checked} + 1")
    file(STRINGS ${ARG_ROOT}/${file} includes REGEX "^[ \t]*[#%]include[ \t]+\"")
    foreach(line IN LISTS includes)
      string(REGEX REPLACE "^[ \t]*[#%]include[ \t]+\"([^\"]*)\".*" "\\1" header "${line}")
      string(STRIP "${line}" line)
      if(header MATCHES "/")
        string(REGEX REPLACE "/.*" "" folder "${header}")
      elseif(NOT ARG_BARE_LAYER)
        continue()
      elseif(header STREQUAL ARG_BARE_NAME)
        set(folder ${ARG_BARE_LAYER})
      else()
        list(APPEND violations "${ARG_PREFIX}${file}: ${line} (include as \"<layer>/<file>.h\")")
        continue()
      endif()
      if(folder STREQUAL ARG_LAYER OR NOT folder IN_LIST ARG_LAYERS OR folder IN_LIST ARG_BELOW)
        continue()
      endif()
      list(APPEND violations "${ARG_PREFIX}${file}: ${line}")
    endforeach()
  endforeach()
  set(violations "${violations}" PARENT_SCOPE)
  set(files_checked ${files_checked} PARENT_SCOPE)
endfunction()

foreach(component IN LISTS components)
  file(GLOB_RECURSE files RELATIVE ${SOURCE_DIR}
       ${SOURCE_DIR}/${component}/*.h ${SOURCE_DIR}/${component}/*.cpp
       ${SOURCE_DIR}/${component}/*.def ${SOURCE_DIR}/${component}/*.i)
  list(FILTER files EXCLUDE REGEX "_test\\.cpp$|/(testing|javatest)/")
  check_layer_includes(ROOT ${SOURCE_DIR} LAYER ${component} LAYERS ${checked_folders}
                       BELOW ${below_${component}} FILES ${files})
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
  endif()
endforeach()
list(FILTER files EXCLUDE REGEX "_test\\.cpp$")
foreach(layer IN LISTS korvid_layers)
  set(layer_files ${files})
  list(FILTER layer_files INCLUDE REGEX "^${layer}/")
  check_layer_includes(ROOT ${SOURCE_DIR}/korvid/src PREFIX korvid/src/ LAYER ${layer} LAYERS ${korvid_layers}
                       BELOW ${korvid_below_${layer}} FILES ${layer_files}
                       BARE_NAME network_declarations.h BARE_LAYER dnn)
endforeach()

if(violations)
  list(JOIN violations "\n  " text)
  message(FATAL_ERROR "includes against the layering (see cmake/check_layers.cmake):\n  ${text}")
endif()
message(STATUS "${files_checked} production files include only their own or lower components and layers")
