set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
# The test programs run under Wine. The wrapper script of the package complains about a missing 32-bit
# half, so the program behind it comes first.
find_program(VELLUM_WINE NAMES wine64 wine PATHS /usr/lib/wine /usr/bin NO_DEFAULT_PATH)
if(VELLUM_WINE)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/run-under-wine.in ${CMAKE_BINARY_DIR}/run-under-wine
                 @ONLY FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/run-under-wine)
endif()
