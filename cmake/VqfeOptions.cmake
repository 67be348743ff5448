# Project-wide compile options and the test helper used by every subsystem.
add_compile_options(-Wall -Wextra)

if(VQFE_SANITIZE)
  list(JOIN VQFE_SANITIZE "," _vqfe_sanitizers)
  add_compile_options(-fsanitize=${_vqfe_sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${_vqfe_sanitizers})
endif()

# vqfe_add_component(<name> SOURCES <files...> [DEPENDS <targets...>])
# One engine component: a static library whose headers are included as "<folder>/<file>.h"
# and whose users get its DEPENDS too.
function(vqfe_add_component name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS})
endfunction()

# vqfe_add_test(<name> SOURCES <files...> LIBS <libs...>)
# One GoogleTest executable linking the components it tests, registered with CTest test
# by test.
function(vqfe_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest_main GTest::gmock)
  gtest_discover_tests(${name} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} DISCOVERY_TIMEOUT 60)
endfunction()
