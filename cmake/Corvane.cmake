# What every target of the house shares: warnings, sanitizers, the include root, and where outputs lie.
#
# The build tree has the shape of an installation, so that the program finds its library and its bundles
# by the same relative paths in both: <build>/corvane, <build>/lib/*.so, <build>/lib/corvane/*.bundle.

include(${CMAKE_CURRENT_LIST_DIR}/Bundle.cmake)

find_program(CCACHE ccache)
if(CCACHE)  # which keeps nothing of a source with precompiled headers, unless it is allowed to
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
endif()
add_compile_options($<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>)

add_library(corvane-options INTERFACE)
target_compile_options(corvane-options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
  -Woverloaded-virtual -Wno-missing-field-initializers
  -Wno-restrict -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)  # g++ 12 misreads std::string
target_include_directories(corvane-options INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(corvane-options INTERFACE _REENTRANT)  # as what uses PipeWire has it: precompiled headers must agree
if(CORVANE_SANITIZE)
  target_compile_options(corvane-options INTERFACE -fsanitize=${CORVANE_SANITIZE} -fno-omit-frame-pointer)
  if(CORVANE_SANITIZE_NOT)
    target_compile_options(corvane-options INTERFACE -fno-sanitize=${CORVANE_SANITIZE_NOT})
  endif()
  target_link_options(corvane-options INTERFACE -fsanitize=${CORVANE_SANITIZE})
  target_compile_definitions(corvane-options INTERFACE CORVANE_SANITIZED=1)
  # g++ 12 misreads what they instrument, and takes sources for headers where they are compiled together.
  target_compile_options(corvane-options INTERFACE -Wno-maybe-uninitialized -Wno-subobject-linkage)
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

# Checks for undefined behaviour make GoogleTest's macros twice as slow to compile, and -O3 half as slow again; a
# sanitizer's build takes half as long without optimization. The rooms have all of it; the tests' own sources go without.
add_library(corvane-test-options INTERFACE)
target_link_libraries(corvane-test-options INTERFACE corvane-options)
target_compile_options(corvane-test-options INTERFACE $<$<CONFIG:Release>:-O1>)
if(CORVANE_SANITIZE)
  target_compile_options(corvane-test-options INTERFACE -O0)
  if(CORVANE_SANITIZE MATCHES undefined)
    target_compile_options(corvane-test-options INTERFACE -fno-sanitize=undefined)
  endif()
endif()

set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/archive)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)  # a copied build works where it lies
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

include(${CMAKE_CURRENT_LIST_DIR}/Precompiled.cmake)

# corvane_apart(<target> <files>): sources whose short names mean other things than in the files beside them, so that no
# compilation takes them together; see CMAKE_UNITY_BUILD in the presets.
function(corvane_apart target)
  set_source_files_properties(${ARGN} TARGET_DIRECTORY ${target} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

# corvane_room(<name> LINKS <targets> SOURCES <files>): a static room above the platform line.
function(corvane_room name)
  cmake_parse_arguments(ROOM "" "" "LINKS;SOURCES" ${ARGN})
  add_library(corvane-${name} STATIC ${ROOM_SOURCES})
  target_link_libraries(corvane-${name} PUBLIC corvane-options ${ROOM_LINKS})
  target_precompile_headers(corvane-${name} REUSE_FROM corvane-precompiled)
endfunction()

# A GoogleTest program at <build>/tests/test-<name>.
function(corvane_test_program name)
  cmake_parse_arguments(T "" "" "LINKS;SOURCES" ${ARGN})
  add_executable(test-${name} ${T_SOURCES})
  target_include_directories(test-${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(test-${name} PRIVATE corvane-test-options ${T_LINKS} GTest::gtest_main GTest::gmock)
  target_precompile_headers(test-${name} REUSE_FROM corvane-precompiled-tests)
  set_target_properties(test-${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
endfunction()

# corvane_test(<name> LINKS <targets> [SOURCES <files>] [ONE_THREAD <files>] [LABELS <labels>]): each case of the program
# is a CTest test. A file of which no case has a second thread stands under ONE_THREAD: ThreadSanitizer finds nothing there.
function(corvane_test name)
  cmake_parse_arguments(T "" "" "LINKS;SOURCES;ONE_THREAD;LABELS" ${ARGN})
  if(NOT CORVANE_SANITIZE MATCHES thread)
    list(APPEND T_SOURCES ${T_ONE_THREAD})
  elseif(NOT T_SOURCES)
    return()
  endif()
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
