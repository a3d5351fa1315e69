# Run by an installation before anything else: notes which directories are not there yet, so that
# the target "uninstall" removes those and no others. A second installation adds to the first one's.
#
# Takes CMAKE_INSTALL_PREFIX and TIDEWELL_INSTALL_DIRECTORIES, and writes TIDEWELL_DIRECTORIES_FILE.
foreach(directory IN LISTS TIDEWELL_INSTALL_DIRECTORIES)
  cmake_path(APPEND CMAKE_INSTALL_PREFIX "${directory}" OUTPUT_VARIABLE path)
  set(path "$ENV{DESTDIR}${path}")
  while(NOT EXISTS "${path}")
    list(APPEND new_directories "${path}")
    cmake_path(GET path PARENT_PATH path)
  endwhile()
endforeach()
if(EXISTS "${TIDEWELL_DIRECTORIES_FILE}")
  file(STRINGS "${TIDEWELL_DIRECTORIES_FILE}" noted)
endif()
list(APPEND new_directories ${noted})
list(REMOVE_DUPLICATES new_directories)
list(JOIN new_directories "\n" text)
file(WRITE "${TIDEWELL_DIRECTORIES_FILE}" "${text}\n")
