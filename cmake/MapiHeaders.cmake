# The published MAPI headers. The cross-compiler has them; elsewhere each one is linked from the package
# mingw-w64-common (public domain) into the build tree, over the small windows.h of Platform/Posix. Only
# the files named here become visible, so that nothing else of that package shadows a system header.
set(VELLUM_PUBLISHED_HEADERS /usr/share/mingw-w64/include CACHE PATH "Where the published MAPI headers lie")
add_library(MapiHeaders INTERFACE)
if(NOT WIN32)
  set(dir ${CMAKE_BINARY_DIR}/mapi-headers)
  file(MAKE_DIRECTORY ${dir})
  foreach(name mapi mapicode mapidefs mapiguid mapitags mapiutil mapix imessage mapispi mapioid mapinls
               winerror fltwinerror)
    if(NOT EXISTS ${VELLUM_PUBLISHED_HEADERS}/${name}.h)
      message(FATAL_ERROR "${name}.h not found; run scripts/setup (package mingw-w64-common)")
    endif()
    file(CREATE_LINK ${VELLUM_PUBLISHED_HEADERS}/${name}.h ${dir}/${name}.h SYMBOLIC)
  endforeach()
  target_include_directories(MapiHeaders SYSTEM INTERFACE
    ${CMAKE_SOURCE_DIR}/Libraries/Platform/Posix/include ${dir})
endif()
