# SPDX-License-Identifier: MIT
find_package(GTest REQUIRED)
find_package(rapidcheck REQUIRED)
include(GoogleTest)

# rdm_compile_quickly(TARGETS...): in an optimised build, compile tests without optimisation and debug information, in a
# fraction of the time. The code under test stays optimised.
function(rdm_compile_quickly)
  if(CMAKE_BUILD_TYPE MATCHES "Rel")
    foreach(target ${ARGN})
      target_compile_options(${target} PRIVATE -O0 -g0 -U_FORTIFY_SOURCE)
    endforeach()
  endif()
endfunction()

# rdm_test(NAME [DRIVES_PROGRAMS] SOURCES FILES... [ALONE FILES...] LINK LIBS...): a GoogleTest program whose cases ctest
# lists one by one. Sources after ALONE are never compiled together with others.
# Tests that start our programs have the label "programs": scripts/test repeats them with the programs of the other build.
function(rdm_test name)
  cmake_parse_arguments(TEST "DRIVES_PROGRAMS" "" "SOURCES;ALONE;LINK" ${ARGN})
  set(labels)
  if(TEST_DRIVES_PROGRAMS)
    set(labels LABELS programs)
  endif()
  add_executable(${name} ${TEST_SOURCES} ${TEST_ALONE})
  set_source_files_properties(${TEST_ALONE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests
    COMPILE_WARNING_AS_ERROR ON)
  target_link_libraries(${name} PRIVATE ${TEST_LINK} test_support GTest::gmock GTest::gtest_main)
  target_precompile_headers(${name} REUSE_FROM test_support)
  rdm_compile_quickly(${name})
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
    NO_PRETTY_VALUES PROPERTIES TIMEOUT 300 ${labels})
endfunction()
