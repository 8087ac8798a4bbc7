# SPDX-License-Identifier: MIT
# rdm_test(NAME SOURCES FILES... LINK LIBS...): a GoogleTest program whose cases ctest lists one by one.
find_package(GTest REQUIRED)
find_package(rapidcheck REQUIRED)
include(GoogleTest)

function(rdm_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${TEST_LINK} test_support GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES TIMEOUT 300)
endfunction()
