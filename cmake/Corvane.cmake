# What every target of the house shares: warnings, sanitizers, the include root, and where outputs lie.
#
# The build tree has the shape of an installation, so that the program finds its library and its bundles
# by the same relative paths in both: <build>/corvane, <build>/lib/*.so, <build>/lib/corvane/*.bundle.

include(${CMAKE_CURRENT_LIST_DIR}/Bundle.cmake)

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

add_library(corvane-options INTERFACE)
target_compile_options(corvane-options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
  -Woverloaded-virtual -Wno-missing-field-initializers
  -Wno-restrict)  # g++ 12 sees overlaps in std::string that are not there
target_include_directories(corvane-options INTERFACE ${PROJECT_SOURCE_DIR}/src)
if(CORVANE_SANITIZE)
  target_compile_options(corvane-options INTERFACE -fsanitize=${CORVANE_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(corvane-options INTERFACE -fsanitize=${CORVANE_SANITIZE})
  target_compile_definitions(corvane-options INTERFACE CORVANE_SANITIZED=1)
else()  # a library that lacks a function shows when it is linked; sanitizers leave theirs to the program
  string(APPEND CMAKE_SHARED_LINKER_FLAGS " -Wl,-z,defs")
  string(APPEND CMAKE_MODULE_LINKER_FLAGS " -Wl,-z,defs")
endif()
if(CORVANE_TRAP_REALTIME)
  if(NOT CORVANE_SANITIZE MATCHES "address|thread")
    message(FATAL_ERROR "CORVANE_TRAP_REALTIME hears of allocations from a sanitizer: set CORVANE_SANITIZE too")
  endif()
  target_compile_definitions(corvane-options INTERFACE CORVANE_TRAP_REALTIME=1)
endif()

set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/archive)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)  # a copied build works where it lies
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

# corvane_room(<name> LINKS <targets> SOURCES <files>): a static room above the platform line.
function(corvane_room name)
  cmake_parse_arguments(ROOM "" "" "LINKS;SOURCES" ${ARGN})
  add_library(corvane-${name} STATIC ${ROOM_SOURCES})
  target_link_libraries(corvane-${name} PUBLIC corvane-options ${ROOM_LINKS})
endfunction()

# A GoogleTest program at <build>/tests/test-<name>.
function(corvane_test_program name)
  cmake_parse_arguments(T "" "" "LINKS;SOURCES" ${ARGN})
  add_executable(test-${name} ${T_SOURCES})
  target_include_directories(test-${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(test-${name} PRIVATE corvane-options ${T_LINKS} GTest::gtest_main GTest::gmock)
  set_target_properties(test-${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
endfunction()

# corvane_test(<name> LINKS <targets> SOURCES <files> [LABELS <labels>]): each case of the program is a CTest test.
function(corvane_test name)
  cmake_parse_arguments(T "" "" "LINKS;SOURCES;LABELS" ${ARGN})
  corvane_test_program(${name} LINKS ${T_LINKS} SOURCES ${T_SOURCES})
  gtest_discover_tests(test-${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300 LABELS "${T_LABELS}")
endfunction()

# corvane_desktop_test(<name> LINKS <targets> SOURCES <files>): each case of the program is a CTest test on a private
# PipeWire, with nothing else running beside it; see scripts/run-desktop-test.
function(corvane_desktop_test name)
  cmake_parse_arguments(T "" "" "LINKS;SOURCES" ${ARGN})
  corvane_test_program(${name} LINKS corvane-desktop-support ${T_LINKS} SOURCES ${T_SOURCES})
  add_dependencies(test-${name} corvane-test-app)
  set_target_properties(test-${name} PROPERTIES
    CROSSCOMPILING_EMULATOR "${PROJECT_SOURCE_DIR}/scripts/run-desktop-test;${PROJECT_BINARY_DIR}")
  gtest_discover_tests(test-${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 TEST_PREFIX Desktop.
    PROPERTIES LABELS desktop RUN_SERIAL ON TIMEOUT 300)
endfunction()
