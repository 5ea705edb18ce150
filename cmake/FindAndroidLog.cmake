# Finds the Android log library and defines the target AndroidLog::AndroidLog.
#
# On a device the library is part of the platform. Debian's package android-liblog-dev keeps its
# library in a folder of its own, which the loader does not search: whoever links the target needs
# a run path to AndroidLog_LIBRARY_DIR.

find_path(AndroidLog_INCLUDE_DIR android/log.h PATH_SUFFIXES android)
find_library(AndroidLog_LIBRARY NAMES log PATH_SUFFIXES android)
mark_as_advanced(AndroidLog_INCLUDE_DIR AndroidLog_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(AndroidLog
  REQUIRED_VARS AndroidLog_LIBRARY AndroidLog_INCLUDE_DIR)

if(AndroidLog_FOUND)
  get_filename_component(AndroidLog_LIBRARY_DIR "${AndroidLog_LIBRARY}" DIRECTORY)
  if(NOT TARGET AndroidLog::AndroidLog)
    add_library(AndroidLog::AndroidLog UNKNOWN IMPORTED)
    set_target_properties(AndroidLog::AndroidLog PROPERTIES
      IMPORTED_LOCATION "${AndroidLog_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${AndroidLog_INCLUDE_DIR}")
  endif()
endif()
