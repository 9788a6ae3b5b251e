#----------------------------------------------------------------
# Generated CMake target import file for configuration "Release".
#----------------------------------------------------------------

# Commands may need to know the format version.
set(CMAKE_IMPORT_FILE_VERSION 1)

# Import target "kelt::fem" for configuration "Release"
set_property(TARGET kelt::fem APPEND PROPERTY IMPORTED_CONFIGURATIONS RELEASE)
set_target_properties(kelt::fem PROPERTIES
  IMPORTED_LOCATION_RELEASE "${_IMPORT_PREFIX}/lib/libkeltfem.so.4.4.0.0"
  IMPORTED_SONAME_RELEASE "libkeltfem.so.4"
  )

list(APPEND _cmake_import_check_targets kelt::fem )
list(APPEND _cmake_import_check_files_for_kelt::fem "${_IMPORT_PREFIX}/lib/libkeltfem.so.4.4.0.0" )

# Commands beyond this point should not need to know the version.
set(CMAKE_IMPORT_FILE_VERSION)
