# Writes a source file that holds shader sources as string constants, so that the library needs no files at run time.
# Takes pairs of a constant's name and a file.
function(nimbrel_embed_shaders output)
    set(text "#include \"render/ShaderSources.h\"\n")
    while(ARGN)
        list(POP_FRONT ARGN name file)
        file(READ ${file} source)
        string(APPEND text "\nconst char* const ${name} = R\"glsl(${source})glsl\";\n")
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    endwhile()
    file(CONFIGURE OUTPUT ${output} CONTENT "@text@" @ONLY)
endfunction()
