# vqfe_java_sources_file(<dirs> <file>): writes every .java file under the ;-list dirs,
# sorted, one per line, into file: an @-argument file for javac and javadoc. Included by
# the -P scripts that run them (the sources are only known after SWIG ran).
function(vqfe_java_sources_file dirs file)
  set(sources "")
  foreach(dir IN LISTS dirs)
    file(GLOB_RECURSE found "${dir}/*.java")
    list(APPEND sources ${found})
  endforeach()
  list(SORT sources)
  list(JOIN sources "\n" source_lines)
  file(WRITE "${file}" "${source_lines}\n")
endfunction()
