# Libraries that are not ours. Everything comes from Debian packages, but for SQLite on Windows, whose
# amalgamation scripts/setup takes out of an npm package into deps/.
find_package(Threads REQUIRED)

add_library(Sqlite INTERFACE)
if(WIN32)
  set(amalgamation ${CMAKE_SOURCE_DIR}/deps/sqlite3)
  if(NOT EXISTS ${amalgamation}/sqlite3.c)
    message(FATAL_ERROR "deps/sqlite3 is missing; run scripts/setup --windows")
  endif()
  add_library(SqliteAmalgamation STATIC ${amalgamation}/sqlite3.c)
  target_compile_options(SqliteAmalgamation PRIVATE -w)
  target_compile_definitions(SqliteAmalgamation PRIVATE SQLITE_THREADSAFE=1 SQLITE_OMIT_LOAD_EXTENSION)
  target_include_directories(SqliteAmalgamation SYSTEM PUBLIC ${amalgamation})
  target_link_libraries(Sqlite INTERFACE SqliteAmalgamation)
else()
  find_package(SQLite3 REQUIRED)
  target_link_libraries(Sqlite INTERFACE SQLite::SQLite3)

  find_library(VELLUM_LIBPFF pff REQUIRED)
endif()

# Header-only, from the native packages; the cross-build reads the same headers.
add_library(Cli11 INTERFACE)
target_include_directories(Cli11 SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/header-only)
add_library(Json INTERFACE)
target_include_directories(Json SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/header-only)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/header-only)
foreach(name CLI nlohmann)
  if(NOT EXISTS /usr/include/${name})
    message(FATAL_ERROR "/usr/include/${name} not found; run scripts/setup")
  endif()
  file(CREATE_LINK /usr/include/${name} ${CMAKE_BINARY_DIR}/header-only/${name} SYMBOLIC)
endforeach()

# GoogleTest is built from the sources that the package carries, with the flags of the preset.
set(gtest_dir /usr/src/googletest/googletest)
add_library(GoogleTest STATIC ${gtest_dir}/src/gtest-all.cc)
target_include_directories(GoogleTest SYSTEM PUBLIC ${gtest_dir}/include PRIVATE ${gtest_dir})
target_compile_options(GoogleTest PRIVATE -w)
target_link_libraries(GoogleTest PUBLIC Threads::Threads)
