# Helpers that give every target of ours the same warnings and layout rules.

set(ZELD_WARNINGS -Wall -Wextra -Werror)
file(WRITE ${CMAKE_BINARY_DIR}/fuzzers.txt "")

# zeld_library(name SOURCES ... [PUBLIC_INCLUDE dirs] [DEPS targets])
function(zeld_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_INCLUDE;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE ${ZELD_WARNINGS})
  if(ARG_PUBLIC_INCLUDE)
    target_include_directories(${name} PUBLIC ${ARG_PUBLIC_INCLUDE})
  endif()
  if(ARG_DEPS)
    target_link_libraries(${name} PUBLIC ${ARG_DEPS})
  endif()
endfunction()

# Under TSan every executable carries the suppressions of
# cmake/tsan-suppressions.txt (why: see that file) and stops at its first
# report, both compiled into the program so that child processes started by
# tests need no environment: a race in a daemon that a test started ends that
# daemon, and so fails the test, instead of printing a report nobody reads.
if(ZELD_SANITIZE STREQUAL "thread")
  file(READ ${CMAKE_CURRENT_LIST_DIR}/tsan-suppressions.txt ZELD_TSAN_SUPPRESSIONS)
  string(REGEX REPLACE "#[^\n]*\n" "" ZELD_TSAN_SUPPRESSIONS "${ZELD_TSAN_SUPPRESSIONS}")
  string(REPLACE "\n" "\\n" ZELD_TSAN_SUPPRESSIONS "${ZELD_TSAN_SUPPRESSIONS}")
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/ZelTsanSuppressions.cpp
       CONTENT "extern \"C\" const char* __tsan_default_suppressions() { return \"${ZELD_TSAN_SUPPRESSIONS}\"; }\n\
extern \"C\" const char* __tsan_default_options() { return \"halt_on_error=1\"; }\n")
endif()

# An executable of ours with the project's warnings, linked with `libs`.
function(zeld_executable_ name sources libs)
  add_executable(${name} ${sources})
  target_compile_options(${name} PRIVATE ${ZELD_WARNINGS})
  target_link_libraries(${name} PRIVATE ${libs} Threads::Threads)
  if(ZELD_SANITIZE STREQUAL "thread")
    target_sources(${name} PRIVATE ${CMAKE_BINARY_DIR}/ZelTsanSuppressions.cpp)
  endif()
endfunction()

# zeld_test(name SOURCES ... [DEPS targets] [LABELS labels])
# LABELS: "e2e" for tests that run the real zeld binary.
# Every case runs in its own process (gtest_discover_tests): the task manager's
# reaper state is process-wide.
function(zeld_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;LABELS" ${ARGN})
  if(NOT ZELD_TESTS)
    return()
  endif()
  zeld_executable_(${name} "${ARG_SOURCES}"
    "${ARG_DEPS};zeld_test_support;GTest::gtest;GTest::gmock;GTest::gtest_main")
  # Listed when ctest runs, so a new case file is a new test without a rebuild.
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 DISCOVERY_MODE PRE_TEST
    PROPERTIES TIMEOUT 120 LABELS "${ARG_LABELS}")
endfunction()

# zeld_tool(name SOURCES ... [DEPS targets]): a helper program, e.g. a peer process for tests.
function(zeld_tool name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  zeld_executable_(${name} "${ARG_SOURCES}" "${ARG_DEPS}")
endfunction()

# zeld_fuzzer(name SOURCES ... [DEPS targets] [CORPUS dir])
# Built only with ZELD_FUZZ (clang). CI runs every registered fuzzer for a
# fixed time over its seed corpus; the list is written to fuzzers.txt.
function(zeld_fuzzer name)
  cmake_parse_arguments(ARG "" "CORPUS" "SOURCES;DEPS" ${ARGN})
  if(NOT ZELD_FUZZ)
    return()
  endif()
  zeld_executable_(${name} "${ARG_SOURCES}" "${ARG_DEPS}")
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  file(APPEND ${CMAKE_BINARY_DIR}/fuzzers.txt "${name} ${ARG_CORPUS}\n")
endfunction()

# zeld_benchmark(name SOURCES ... [DEPS targets])
function(zeld_benchmark name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  zeld_executable_(${name} "${ARG_SOURCES}" "${ARG_DEPS};benchmark::benchmark")
endfunction()

# zeld_device_module(<Android.bp module> <target>...): the device build's
# module compiles the same sources (.cpp and .aidl) as these targets together.
# Recorded here; zeld_write_device_sources() writes them for the check in
# tests/build once every target exists.
function(zeld_device_module module)
  string(REPLACE ";" "," targets "${ARGN}")
  set_property(GLOBAL APPEND PROPERTY ZELD_DEVICE_MODULES "${module}:${targets}")
endfunction()

# One "<module> <source>" line per source, the source relative to the top.
function(zeld_write_device_sources file)
  get_property(modules GLOBAL PROPERTY ZELD_DEVICE_MODULES)
  set(lines "")
  foreach(entry ${modules})
    string(REPLACE ":" ";" parts "${entry}")
    list(GET parts 0 module)
    list(GET parts 1 targets)
    string(REPLACE "," ";" targets "${targets}")
    foreach(target ${targets})
      get_target_property(sources ${target} SOURCES)
      get_target_property(dir ${target} SOURCE_DIR)
      foreach(source ${sources})
        if(NOT IS_ABSOLUTE ${source})
          set(source ${dir}/${source})
        endif()
        file(RELATIVE_PATH relative ${PROJECT_SOURCE_DIR} ${source})
        if(relative MATCHES "\\.(cpp|aidl)$" AND NOT source MATCHES "^${PROJECT_BINARY_DIR}/")
          string(APPEND lines "${module} ${relative}\n")
        endif()
      endforeach()
    endforeach()
  endforeach()
  file(WRITE ${file} "${lines}")
endfunction()
