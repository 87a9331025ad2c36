# What every target of the tree shares: warnings, sanitizers, and the function that declares a test program.

# Warnings are private to the tree: link brim_warnings PRIVATE.
add_library(brim_warnings INTERFACE)
target_compile_options(brim_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

# Sanitizers reach every target of the build, the library included: link brim_sanitizers PRIVATE.
set(BRIM_SANITIZE "" CACHE STRING "Sanitizers to build with: empty, address;undefined or thread; Clang also undefined;integer;implicit-conversion")
add_library(brim_sanitizers INTERFACE)
if(BRIM_SANITIZE)
  list(JOIN BRIM_SANITIZE "," _brim_sanitizers)
  target_compile_options(brim_sanitizers INTERFACE
    -fsanitize=${_brim_sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if("integer" IN_LIST BRIM_SANITIZE)
    # Bits that a mask loses by a shift are meant to go.
    target_compile_options(brim_sanitizers INTERFACE
      -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/integer-ignorelist.txt -fno-sanitize=unsigned-shift-base)
  endif()
  target_link_options(brim_sanitizers INTERFACE -fsanitize=${_brim_sanitizers})
  target_compile_definitions(brim_sanitizers INTERFACE BRIM_SANITIZED=1)
endif()

# The product home of the tests: a locale file without entries, so that loading the library prints nothing.
set(BRIM_TEST_HOME "${PROJECT_BINARY_DIR}/test-home")
file(CONFIGURE OUTPUT "${BRIM_TEST_HOME}/hxfoundation/server/locale/BrimLocale.xml" CONTENT "<BrimLocale/>\n")

# brim_add_test(NAME SOURCES ... [LIBRARIES ...]): one GoogleTest program, its tests registered with CTest
# one by one, each in a process of its own.
function(brim_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_compile_features(${name} PRIVATE cxx_std_20)
  # The library is optimised; optimising its tests too would only double the time to build them.
  if(BRIM_SANITIZE)
    target_compile_options(${name} PRIVATE -O0)
  else()
    target_compile_options(${name} PRIVATE $<$<CONFIG:Release,RelWithDebInfo>:-O1>)
  endif()
  target_link_libraries(${name} PRIVATE
    ${arg_LIBRARIES} brimportable::brimportable GTest::gtest_main GTest::gmock brim_warnings brim_sanitizers)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
  target_link_libraries(${name} PRIVATE brimportable_private_headers)
  gtest_discover_tests(${name} TEST_PREFIX "${name}/" DISCOVERY_MODE PRE_TEST
    PROPERTIES TIMEOUT 300 ENVIRONMENT "HX_PRODUCT_HOME=${BRIM_TEST_HOME}")
endfunction()
