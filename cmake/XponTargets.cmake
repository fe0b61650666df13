# Compiler options of all targets, and functions that define libraries, programs and tests.

add_library(xpon_options INTERFACE)
target_compile_options(xpon_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Werror
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wshadow=local>
  # g++ 12 sees overlapping copies in "text" + std::string when it optimizes (GCC bug 105651).
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
# Bounds and null checks in every build type: a terminal number above 15 and an empty logger must stop the process.
target_compile_definitions(xpon_options INTERFACE _GLIBCXX_ASSERTIONS)
if(XPON_SANITIZE)
  target_compile_options(xpon_options INTERFACE -fsanitize=${XPON_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(xpon_options INTERFACE -fsanitize=${XPON_SANITIZE})
endif()
if(XPON_FUZZ)
  target_compile_options(xpon_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(XPON_COVERAGE)
  target_compile_options(xpon_options INTERFACE --coverage -O0)
  target_link_options(xpon_options INTERFACE --coverage)
endif()

# Tests are built without optimisation in every build type. They take most of the build time, and wait more than they run.
set(xpon_test_options -O0)

# xpon_library(NAME SOURCES ... [PUBLIC targets...] [PRIVATE targets...] [INCLUDE folders...])
function(xpon_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE;INCLUDE" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${ARG_INCLUDE}>)
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE $<BUILD_INTERFACE:xpon_options> ${ARG_PRIVATE})
endfunction()

# Installs a library that application modules link, with its headers. Its exported name is xpon::NAME without the "xpon_".
function(xpon_install_library name)
  cmake_parse_arguments(ARG "" "" "HEADERS" ${ARGN})
  string(REPLACE "xpon_" "" export_name ${name})
  set_target_properties(${name} PROPERTIES EXPORT_NAME ${export_name})
  install(TARGETS ${name} EXPORT log-config DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT log-config-dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/log-config)
  install(DIRECTORY ${ARG_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/log-config COMPONENT log-config-dev
    FILES_MATCHING PATTERN "*.hpp")
endfunction()

# A library of the platform: its public headers are under include/.
function(xpon_platform_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  xpon_library(${name} SOURCES ${ARG_SOURCES} PUBLIC xpon_core ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE}
    INCLUDE ${CMAKE_CURRENT_SOURCE_DIR}/include)
  xpon_install_library(${name} HEADERS include/)
endfunction()

function(xpon_executable name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE xpon_options ${ARG_LINK})
endfunction()

# xpon_test(NAME SOURCES ... LINK ... [SANDBOX]): a GoogleTest program; each of its tests is a separate ctest test.
# With SANDBOX each runs in private namespaces, in which the daemon's fixed paths are private files.
function(xpon_test name)
  cmake_parse_arguments(ARG "SANDBOX" "" "SOURCES;LINK" ${ARGN})
  if(NOT XPON_TESTS)
    return()
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE xpon_options test_kit test_kit_main ${ARG_LINK})
  target_compile_options(${name} PRIVATE ${xpon_test_options})
  target_precompile_headers(${name} REUSE_FROM test_kit_main)
  set(labels unit)
  if(ARG_SANDBOX)
    set(labels sandbox)
    set(sandbox ${CMAKE_SOURCE_DIR}/scripts/sandbox)
    if(CMAKE_CROSSCOMPILING) # the tests run this machine's syslog-ng, which needs a module for this machine
      list(APPEND sandbox --build ${CMAKE_SOURCE_DIR}/build/dev)
    endif()
    set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR "${sandbox}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    TEST_PREFIX ${name}. PROPERTIES TIMEOUT 300 LABELS ${labels})
endfunction()

# With sanitizers, g++ 12 warns about uninitialised values in the code that it adds to std::regex.
function(xpon_uses_regex target)
  if(XPON_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
  endif()
endfunction()
