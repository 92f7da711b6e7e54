# Runs kelmesh once and checks what it did; used by the end-to-end tests in tests/CMakeLists.txt.
#   cmake -DKELMESH=<program> -DARGS=<arg|arg|...> [-DEXPECT_FAIL=ON] [-DEXPECT_STDOUT=<regex|...>]
#         [-DEXPECT_FILE=<path>] [-DREMOVE=<path|...>] -P RunKelmesh.cmake
# Lists are separated by "|" so that they pass through add_test unchanged.
# A successful run must exit with 0, write nothing to stderr and print every EXPECT_STDOUT
# expression. A failing run (EXPECT_FAIL) must exit with a non-zero status and print exactly one
# line on stderr, starting with "kelmesh: ". EXPECT_FILE must exist afterwards (when the run
# succeeds) or must not exist (when it fails). REMOVE is deleted before the run.
if(NOT KELMESH)
  message(FATAL_ERROR "KELMESH is not set")
endif()
string(REPLACE "|" ";" ARGS "${ARGS}")
string(REPLACE "|" ";" EXPECT_STDOUT "${EXPECT_STDOUT}")
string(REPLACE "|" ";" REMOVE "${REMOVE}")
foreach(path IN LISTS REMOVE)
  file(REMOVE "${path}")
endforeach()
execute_process(COMMAND "${KELMESH}" ${ARGS}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(JOIN " " shown ${ARGS})
if(EXPECT_FAIL)
  if(status EQUAL 0)
    message(FATAL_ERROR "kelmesh ${shown}: exit status 0, expected a failure\nstdout:\n${out}")
  endif()
  if(NOT err MATCHES "^kelmesh: [^\n]+\n$")
    message(FATAL_ERROR "kelmesh ${shown}: expected one error line on stderr, got:\n${err}")
  endif()
  if(EXPECT_FILE AND EXISTS "${EXPECT_FILE}")
    message(FATAL_ERROR "kelmesh ${shown}: failed but left ${EXPECT_FILE} behind")
  endif()
else()
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "kelmesh ${shown}: exit status ${status}\nstderr:\n${err}")
  endif()
  if(NOT err STREQUAL "")
    message(FATAL_ERROR "kelmesh ${shown}: unexpected stderr:\n${err}")
  endif()
  if(EXPECT_FILE AND NOT EXISTS "${EXPECT_FILE}")
    message(FATAL_ERROR "kelmesh ${shown}: ${EXPECT_FILE} was not written")
  endif()
endif()
foreach(expression IN LISTS EXPECT_STDOUT)
  if(NOT out MATCHES "${expression}")
    message(FATAL_ERROR "kelmesh ${shown}: stdout does not match '${expression}':\n${out}")
  endif()
endforeach()
