# Debian's own interpreter first: Debian's python3-jsonschema is for that one.
find_program(LUMARET_PYTHON3 python3 PATHS /usr/bin NO_DEFAULT_PATH)
find_program(LUMARET_PYTHON3 python3 REQUIRED)

# Registers each method of the Python tests in the calling folder as a test "<prefix>.<class>.<method>"
# of the executable, but those that match EXCEPT.
function(lumaret_add_python_tests prefix)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "EXCEPT;TIMEOUT" "")
  file(GLOB sources CONFIGURE_DEPENDS *.py)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${sources})
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env PYTHONDONTWRITEBYTECODE=1
            ${LUMARET_PYTHON3} ${PROJECT_SOURCE_DIR}/Tests/discover_tests.py
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
    OUTPUT_VARIABLE tests
    OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "\n" ";" tests "${tests}")
  if(arg_EXCEPT)
    list(FILTER tests EXCLUDE REGEX "${arg_EXCEPT}")
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()

  foreach(test IN LISTS tests)
    string(REGEX REPLACE "^[^.]+" "${prefix}" name ${test})
    add_test(
      NAME ${name}
      COMMAND ${LUMARET_PYTHON3} -m unittest -v ${test}
      WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    set_tests_properties(
      ${name}
      PROPERTIES ENVIRONMENT "LUMARET_MACOS_HELPER=$<TARGET_FILE:lumaret-macos-helper>;PYTHONDONTWRITEBYTECODE=1"
                 SKIP_REGULAR_EXPRESSION "OK \\(skipped=1\\)"
                 TIMEOUT ${arg_TIMEOUT})
  endforeach()
  set(lumaret_python_tests ${tests} PARENT_SCOPE)
endfunction()
