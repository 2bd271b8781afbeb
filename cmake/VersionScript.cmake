# Writes a linker version script that exports exactly what the public header marks with NIMBREL_API, and hides the rest:
# the header is the only list of exports.
function(nimbrel_version_script header script)
    file(STRINGS ${header} lines REGEX "^NIMBREL_API ")
    set(names "")
    foreach(line IN LISTS lines)
        if(line MATCHES "^NIMBREL_API extern [a-z0-9_]+ ([A-Za-z0-9_, ]+);$") # variables
            string(REPLACE ", " ";" variables "${CMAKE_MATCH_1}")
            list(APPEND names ${variables})
        elseif(line MATCHES "([A-Za-z0-9_]+)\\(")
            list(APPEND names ${CMAKE_MATCH_1})
        endif()
    endforeach()
    list(SORT names)
    list(JOIN names "$<SEMICOLON>\n        " text)
    string(REPLACE "$<SEMICOLON>" ";" text "${text}")
    file(CONFIGURE OUTPUT ${script} CONTENT "{\n    global:\n        @text@;\n    local:\n        *;\n};\n" @ONLY)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
endfunction()
