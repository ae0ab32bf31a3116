# core_add_test(NAME LABEL unit|integration|stress LIBS ... [SOURCES ...] [BUS] [DRAWS] [ARGS ...] [DEPENDS ...] [TIMEOUT n])
#
# Builds NAME from NAME.cpp (or SOURCES) with GoogleTest and gives it to ctest as one test.
# BUS runs it under a private session bus of its own. DRAWS says that it, or a program that it starts, draws text.
#   LABEL    ctest label
#   LIBS     what it links besides GoogleTest
#   SOURCES  instead of NAME.cpp
#   ARGS     further command-line words
#   DEPENDS  targets that must be built before it, such as a program that it starts
#   TIMEOUT  seconds, CUEWRIGHT_TEST_TIMEOUT by default: for what hangs, not for what a busy machine or a sanitizer slows down

# core_test_environment: what every test runs in.
# ignore_noninstrumented_modules: Qt, D-Bus and GLib are not built with the thread sanitizer, which cannot see their locks and
# reports each hand-over within them, some twenty on a bus connection alone; so it leaves out what these libraries themselves read
# and write. It would leave out the whole of a QThread or of QtConcurrent, too, and nothing here uses either: all threads are
# std::thread, whose races are found.
# halt_on_error: a race ends the program, so that no test passes over one in a program that it ends by a signal.
set(core_test_environment
  "LC_ALL=C.UTF-8"
  "TSAN_OPTIONS=ignore_noninstrumented_modules=1 halt_on_error=1"
  "UBSAN_OPTIONS=print_stacktrace=1")

set(CUEWRIGHT_TEST_TIMEOUT 600 CACHE STRING "Seconds after which a test without a limit of its own counts as hanging")

function(core_add_test name)
  cmake_parse_arguments(arg "BUS;DRAWS" "LABEL;TIMEOUT" "LIBS;SOURCES;ARGS;DEPENDS" ${ARGN})
  if(NOT arg_SOURCES)
    set(arg_SOURCES ${name}.cpp)
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT ${CUEWRIGHT_TEST_TIMEOUT})
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBS} tests::support GTest::gtest GTest::gmock GTest::gtest_main project_warnings)
  if(TARGET test_headers)
    target_precompile_headers(${name} REUSE_FROM test_headers)
  endif()
  if(arg_DEPENDS)
    add_dependencies(${name} ${arg_DEPENDS})
  endif()
  if(arg_BUS)
    add_test(NAME ${name} COMMAND dbus-run-session -- $<TARGET_FILE:${name}> ${arg_ARGS})
    set_tests_properties(${name} PROPERTIES RUN_SERIAL ON)
  else()
    add_test(NAME ${name} COMMAND ${name} ${arg_ARGS})
  endif()
  set_tests_properties(${name} PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT}
    ENVIRONMENT "${core_test_environment}")
  if(arg_DRAWS)
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
      "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/fonts.lsan:print_suppressions=0")
  endif()
endfunction()
