# vqfe_link_statically(<imported target> <library name> <directories>): makes the
# imported target link lib<library name>.a from the directories (or the default search
# path) in place of the shared library, so nothing that links it needs the .so at run
# time. The archive's objects end up local to the shared library (its version script).
function(vqfe_link_statically target name directories)
  find_library(VQFE_${name}_ARCHIVE NAMES lib${name}.a HINTS ${directories} REQUIRED)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    set_property(TARGET ${target} PROPERTY INTERFACE_LINK_LIBRARIES ${VQFE_${name}_ARCHIVE})
  else()
    set_property(TARGET ${target} PROPERTY IMPORTED_LOCATION ${VQFE_${name}_ARCHIVE})
  endif()
endfunction()
