# One interface target carries what every target of ours is compiled with.
add_library(TidewellOptions INTERFACE)
target_compile_options(TidewellOptions INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
  # Diagnostics name source files relative to the repository, on every machine alike.
  "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/="
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
