cmake_minimum_required(VERSION 3.25)
# Makes the rows of the name tables out of published headers. Run as a script:
#   cmake -DMODE=errors     -DOUT=file -DHEADERS=mapicode.h;winerror.h -P GenerateNames.cmake
#   cmake -DMODE=properties -DOUT=file -DHEADERS=mapitags.h;...        -P GenerateNames.cmake
# The output is a list of macro calls, so that the compiler computes every value from the very headers
# and the same file serves all targets.

# Symbols of codes, in header order. Bounds, bases and facilities are no codes.
function(error_rows headers out)
  set(text "")
  foreach(header ${headers})
    file(STRINGS ${header} lines
      REGEX "^#define +[A-Za-z_0-9]+ +(__MSABI_LONG\\(|_HRESULT_TYPEDEF_\\(|_NDIS_ERROR_TYPEDEF_\\(|\\(\\(HRESULT\\)|\\(WSABASEERR|MAKE_MAPI_[ES]\\(|0$)")
    foreach(line ${lines})
      string(REGEX REPLACE "^#define +([A-Za-z_0-9]+) .*" "\\1" name "${line}")
      if(NOT name MATCHES "(_FIRST|_LAST|_BASE)$|^(FACILITY|SEVERITY)_")
        string(APPEND text "#ifdef ${name}\nROW(${name})\n#endif\n")
      endif()
    endforeach()
  endforeach()
  file(WRITE ${out} "${text}")
endfunction()

# MAIN_ROW: all names in alphabetical order, two names appended. SECOND_ROW: the names without the
# suffix of a text form, in the order of their identifiers.
function(property_rows headers out)
  set(appended PR_FLAG_STATUS PR_REMINDER_FLAG)
  set(main "")
  set(second "")
  foreach(header ${headers})
    file(STRINGS ${header} lines REGEX "^#define +PR_[A-Z_0-9]+ +(PROP_TAG|PR_)")
    foreach(line ${lines})
      string(REGEX REPLACE "^#define +(PR_[A-Z_0-9]+) .*" "\\1" name "${line}")
      if(NOT name IN_LIST appended)
        list(APPEND main ${name})
      endif()
      if(line MATCHES "PROP_TAG *\\(([A-Z_0-9]+), *0x([0-9A-Fa-f]+)\\)")
        set(type ${CMAKE_MATCH_1})
        string(TOUPPER ${CMAKE_MATCH_2} id)
        if(NOT (name MATCHES "_[AW]$" AND type MATCHES "STRING8$|UNICODE$"))
          list(APPEND second "${id} ${name}")
        endif()
      endif()
    endforeach()
  endforeach()
  list(SORT main COMPARE STRING)
  list(SORT second COMPARE STRING)
  set(text "")
  foreach(name ${main} ${appended})
    string(APPEND text "MAIN_ROW(${name})\n")
  endforeach()
  foreach(entry ${second})
    string(REGEX REPLACE "^[^ ]+ " "" name "${entry}")
    string(APPEND text "SECOND_ROW(${name})\n")
  endforeach()
  file(WRITE ${out} "${text}")
endfunction()

if(MODE STREQUAL "errors")
  error_rows("${HEADERS}" ${OUT})
else()
  property_rows("${HEADERS}" ${OUT})
endif()
