# cloudbackup_library(NAME SHARED|STATIC SOURCES ...): one component of the project.
# Headers are included by their path from the project's root ("common/guid.h").
function(cloudbackup_library name type)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(${name} ${type} ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>")
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
  if(type STREQUAL "SHARED")
    set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${CLOUDBACKUP_SOVERSION})
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
    if(CLOUDBACKUP_SANITIZE)
      # The sanitizers' own symbols are found in the program, not in the library.
      target_link_options(${name} PRIVATE -Wl,-z,undefs)
    endif()
  endif()
endfunction()

# cloudbackup_test(NAME SOURCES ... LIBS ... [LABELS ...] [TIMEOUT seconds]): one GoogleTest program;
# every test case in it is a CTest of its own, under sanitizers the program is. Label "slow" marks what a developer may
# leave out, "threads" what the thread sanitizer runs.
function(cloudbackup_test name)
  if(NOT CLOUDBACKUP_TESTS)
    return()
  endif()
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  if(CLOUDBACKUP_THREAD_TESTS_ONLY AND NOT "threads" IN_LIST ARG_LABELS)
    return()
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  set(properties TIMEOUT ${ARG_TIMEOUT})
  if(ARG_LABELS)
    list(APPEND properties LABELS "${ARG_LABELS}")
  endif()
  if(CLOUDBACKUP_SANITIZE MATCHES "thread")
    list(APPEND properties ENVIRONMENT "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/tsan.supp:die_after_fork=0")
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main)
  # Most of a test file's compilation are the headers that all of a program share: they are compiled together.
  set_target_properties(${name} PROPERTIES UNITY_BUILD ON)
  target_compile_options(${name} PRIVATE -Wno-shadow)
  # What is tested is optimised as it ships; optimising the test files themselves would take the larger half of a build.
  # Under a sanitizer optimising them takes longer than they run.
  if(CLOUDBACKUP_SANITIZE)
    target_compile_options(${name} PRIVATE -O0)
  else()
    target_compile_options(${name} PRIVATE -O1)
  endif()
  if(CLOUDBACKUP_SANITIZE)
    # Starting a process under a sanitizer takes longer than most tests: all of a program run in one.
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name} PROPERTIES ${properties} TIMEOUT 1200)
  else()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES ${properties})
  endif()
endfunction()
