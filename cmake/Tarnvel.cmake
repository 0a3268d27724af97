# Project-wide compile settings and the helpers that every folder uses.

add_library(tarnvel_settings INTERFACE)
target_compile_options(tarnvel_settings INTERFACE -Wall -Wextra -Wshadow -Wnon-virtual-dtor)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 reports `"text" + std::string` as an overlapping memcpy (GCC bug 105329).
  target_compile_options(tarnvel_settings INTERFACE -Wno-restrict)
endif()
if(TARNVEL_WERROR)
  target_compile_options(tarnvel_settings INTERFACE -Werror)
endif()
target_include_directories(tarnvel_settings INTERFACE ${PROJECT_SOURCE_DIR})
find_package(Threads REQUIRED)
target_link_libraries(tarnvel_settings INTERFACE Threads::Threads)

if(TARNVEL_SANITIZE)
  add_compile_options(-fsanitize=${TARNVEL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TARNVEL_SANITIZE})
endif()
if(TARNVEL_FUZZ)
  # coverage for the fuzzers in every library they link
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# tarnvel_library(NAME SOURCES... [LIBS ...]): one static library per subsystem or platform part.
function(tarnvel_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC tarnvel_settings ${ARG_LIBS})
endfunction()

# tarnvel_test(NAME SOURCES... [LIBS ...]): one GoogleTest binary, its cases registered with CTest.
function(tarnvel_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE tarnvel_settings tarnvel_test_support GTest::gtest_main GTest::gmock ${ARG_LIBS})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp")
endfunction()

# tarnvel_fuzzer(NAME SOURCES... [LIBS ...]): a libFuzzer target (tests/fuzz, built with TARNVEL_FUZZ).
function(tarnvel_fuzzer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  target_link_libraries(${name} PRIVATE tarnvel_settings ${ARG_LIBS})
endfunction()
