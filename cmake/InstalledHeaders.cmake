# Run by the build: writes the installed headers as applications include them, <tidewell/Value.h>. In the
# source tree each stands in the folder that it belongs to.
#
#     cmake -DSOURCE=… -DDESTINATION=… -DHEADERS=… -P InstalledHeaders.cmake
cmake_minimum_required(VERSION 3.25)
foreach(header IN LISTS HEADERS)
  file(READ "${SOURCE}/${header}" text)
  string(REGEX MATCHALL "#include \"[^\"]+\"" includes "${text}")
  foreach(include IN LISTS includes)
    string(REGEX REPLACE "#include \"(.*)\"" "\\1" included "${include}")
    if(NOT included IN_LIST HEADERS)
      message(FATAL_ERROR "${header} is installed, and ${included}, which it includes, is not")
    endif()
    cmake_path(GET included FILENAME name)
    string(REPLACE "${include}" "#include <tidewell/${name}>" text "${text}")
  endforeach()
  cmake_path(GET header FILENAME name)
  file(WRITE "${DESTINATION}/${name}" "${text}")
endforeach()
