# The JDK the binding builds with: javac/jar/java for the proxies and the JVM tests, and
# the JNI headers. FindJNI does not look beside javac without JAVA_HOME.
find_package(Java 17 REQUIRED COMPONENTS Development Runtime)
if(NOT JAVA_HOME AND NOT DEFINED ENV{JAVA_HOME})
  get_filename_component(_vqfe_javac "${Java_JAVAC_EXECUTABLE}" REALPATH)
  get_filename_component(JAVA_HOME "${_vqfe_javac}/../.." ABSOLUTE)
endif()
# The NDK's jni.h stands alone (no JVM to link); elsewhere the JDK's headers, which a cross
# build uses too (jni_md.h is the same for every Linux architecture).
if(ANDROID)
  find_package(JNI REQUIRED)
else()
  find_package(JNI REQUIRED COMPONENTS JVM)
endif()
