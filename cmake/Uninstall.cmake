# Run by the target "uninstall": removes the files of an installation, and the directories that it made
# if nothing else is in them by now.
cmake_minimum_required(VERSION 3.25)
if(NOT EXISTS "${MANIFEST}")
  message(FATAL_ERROR "Nothing was installed from this build tree: there is no ${MANIFEST}")
endif()
file(STRINGS "${MANIFEST}" files)
foreach(file IN LISTS files)
  message(STATUS "Removing: $ENV{DESTDIR}${file}")
  file(REMOVE "$ENV{DESTDIR}${file}")
endforeach()

file(STRINGS "${DIRECTORIES}" directories)
# The longest first, which are the innermost.
list(SORT directories ORDER DESCENDING)
foreach(directory IN LISTS directories)
  file(GLOB entries "${directory}/*" "${directory}/.*")
  if(IS_DIRECTORY "${directory}" AND NOT entries)
    file(REMOVE_RECURSE "${directory}")
  endif()
endforeach()
file(REMOVE "${MANIFEST}" "${DIRECTORIES}")
