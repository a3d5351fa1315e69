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

# Most of the time that a file takes to compile are the headers that it includes: with this, the files of
# a folder are compiled as one. It suits whole builds; after a change the whole folder is compiled again.
option(TIDEWELL_UNITY_BUILD "Compile the files of each folder as one" OFF)

# Folders stay apart, so that a program takes no more from an archive than it uses. TOGETHER compiles
# all of a target as one, which suits those whose folders include the same large headers.
function(tidewell_compile_folders target)
  if(NOT TIDEWELL_UNITY_BUILD)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 1 arg TOGETHER "" "")
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(GET source PARENT_PATH folder)
    if(arg_TOGETHER)
      set(folder ${target})
    endif()
    # What has definitions of its own is compiled by itself.
    get_source_file_property(definitions "${source}" COMPILE_DEFINITIONS)
    if(NOT definitions)
      set_source_files_properties("${source}" PROPERTIES UNITY_GROUP "${folder}")
    endif()
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  # Types of an unnamed namespace look to gcc 12 as if they came from a header, and with more inlining it
  # sees one more overflow in its own std::string.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>
    $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overread>)
endfunction()
