# Our own mapi32.dll: the message store behind the names that the system's library exports, so that
# what is built for Windows runs where there is no other MAPI.
#
# Each function is exported under its plain and its decorated name, from the list of those we call.
set(functions_file ${CMAKE_SOURCE_DIR}/Libraries/Platform/MapiFunctions.inc)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${functions_file})
file(STRINGS ${functions_file} lines REGEX "^MAPI_FUNCTION\\(")
set(exports "LIBRARY mapi32.dll\nEXPORTS\n")
foreach(line IN LISTS lines)
  string(REGEX MATCH "^MAPI_FUNCTION\\([^,]+, ([A-Za-z]+), ([0-9]+)," matched "${line}")
  string(APPEND exports "  ${CMAKE_MATCH_1}\n  \"${CMAKE_MATCH_1}@${CMAKE_MATCH_2}\" = ${CMAKE_MATCH_1}\n")
endforeach()
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/mapi32.def CONTENT "${exports}" @ONLY)

add_library(mapi32 SHARED $<TARGET_OBJECTS:MapiStore> ${CMAKE_BINARY_DIR}/mapi32.def)
set_target_properties(mapi32 PROPERTIES PREFIX "" LINKER_LANGUAGE CXX)
target_link_libraries(mapi32 PRIVATE MapiStore)
