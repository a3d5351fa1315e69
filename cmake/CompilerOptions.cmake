# One interface target carries what every target of ours is compiled with.
add_library(TidewellOptions INTERFACE)
file(RELATIVE_PATH TIDEWELL_SOURCE_FROM_BUILD "${CMAKE_BINARY_DIR}" "${PROJECT_SOURCE_DIR}")
target_compile_options(TidewellOptions INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
  # Diagnostics name source files relative to the repository, on every machine alike.
  "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/="
  # ccache with a base directory passes paths relative to the build tree.
  "-ffile-prefix-map=${TIDEWELL_SOURCE_FROM_BUILD}="
  # The exported names are unmangled although they take and return C++ values.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-return-type-c-linkage>
  # gcc 12 sees overlaps and overflows in its own std::string and std::variant (its bugs 105651
  # and 105562) once it optimises.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
if(TIDEWELL_WARNINGS_AS_ERRORS)
  target_compile_options(TidewellOptions INTERFACE -Werror)
endif()
if(TIDEWELL_SANITIZERS)
  target_compile_options(TidewellOptions INTERFACE
    "-fsanitize=${TIDEWELL_SANITIZERS}" -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(TidewellOptions INTERFACE "-fsanitize=${TIDEWELL_SANITIZERS}")
endif()
if(TIDEWELL_FUZZ)
  target_compile_options(TidewellOptions INTERFACE -fsanitize=fuzzer-no-link)
endif()
target_include_directories(TidewellOptions INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/Source>)

# Half of the time that a file takes to compile are the standard library's headers. ccache saves more
# where it is used, and does not go together with this.
option(TIDEWELL_PRECOMPILED_HEADERS "Compile the standard library's headers once for a target" OFF)
function(tidewell_precompile_headers target)
  if(TIDEWELL_PRECOMPILED_HEADERS AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    target_precompile_headers(${target} PRIVATE
      <algorithm> <array> <atomic> <chrono> <deque> <filesystem> <functional> <map> <memory> <mutex>
      <optional> <set> <span> <string> <string_view> <system_error> <thread> <utility> <variant>
      <vector>)
    # gcc 12 forgets with it that these headers are the system's, and warns about them as above.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds>)
  endif()
endfunction()
