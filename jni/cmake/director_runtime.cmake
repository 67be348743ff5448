# SWIG's Java director runtime (director.swg), with two exception checks added so that
# building a Swig::DirectorException passes CheckJNI: after calling the throwable's
# getName() and getMessage(), the runtime reads their strings without first asking
# whether the call raised. The copy goes into the build tree, ahead of SWIG's library
# in the include path; the build fails if this SWIG's runtime no longer matches.
#   vqfe_director_runtime(<output dir>)
function(_vqfe_replace_once text_var from to)
  string(FIND "${${text_var}}" "${from}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "SWIG's director.swg changed: cannot add the exception check at '${from}'")
  endif()
  string(REPLACE "${from}" "${to}" text "${${text_var}}")
  set(${text_var} "${text}" PARENT_SCOPE)
endfunction()

function(vqfe_director_runtime out_dir)
  set(source ${SWIG_DIR}/java/director.swg)
  file(READ ${source} text)
  _vqfe_replace_once(text
    [[jstring jstr_classname = (jstring)(jenv->CallObjectMethod(throwclz, getNameMethodID));]]
    [[jstring jstr_classname = (jstring)(jenv->CallObjectMethod(throwclz, getNameMethodID)); if (jenv->ExceptionCheck()) { jenv->ExceptionClear(); jstr_classname = 0; }]])
  _vqfe_replace_once(text
    [[if (jmsg == NULL && jenv->ExceptionCheck())]]
    [[if (jenv->ExceptionCheck() && jmsg == NULL)]])
  file(WRITE ${out_dir}/director.swg "// Generated from ${source} by jni/cmake/director_runtime.cmake.\n${text}")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
endfunction()
