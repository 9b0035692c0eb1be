# Headers that nearly every source includes, compiled once a preset: reading them took half the time of a build.
# A source still includes what it uses; these lists are no part of the code. Large headers of templates do not belong
# here, because each source would instantiate them. All users of one list must have one level of optimization: g++ 12
# takes another level without a warning, and crashes.

set(standard_headers <algorithm> <array> <atomic> <chrono> <cmath> <cstdint> <cstring> <functional> <map> <memory>
  <optional> <span> <string> <utility> <vector>)

file(WRITE ${PROJECT_BINARY_DIR}/precompiled.cpp "")

# The rooms and what tests share: position-independent code.
add_library(corvane-precompiled OBJECT ${PROJECT_BINARY_DIR}/precompiled.cpp)
target_link_libraries(corvane-precompiled PRIVATE corvane-options)
target_precompile_headers(corvane-precompiled PRIVATE ${standard_headers})

# corvane_precompiled_tests(): the programs of tests, which are executables and use GoogleTest.
function(corvane_precompiled_tests)
  add_library(corvane-precompiled-tests OBJECT ${PROJECT_BINARY_DIR}/precompiled.cpp)
  set_target_properties(corvane-precompiled-tests PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(corvane-precompiled-tests PRIVATE -fPIE)
  target_link_libraries(corvane-precompiled-tests PRIVATE corvane-test-options GTest::gmock)
  target_precompile_headers(corvane-precompiled-tests PRIVATE ${standard_headers} <gtest/gtest.h> <gmock/gmock.h>)
endfunction()
