# Gives a target of ours the language level, the warnings and the sanitizers that all of ours share.
function(nimbrel_target name)
    target_compile_features(${name} PRIVATE cxx_std_20)
    target_compile_options(${name} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
    set_target_properties(${name} PROPERTIES CXX_EXTENSIONS OFF)
    if(NIMBREL_SANITIZE)
        target_compile_options(${name} PRIVATE
            -fsanitize=${NIMBREL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${name} PRIVATE -fsanitize=${NIMBREL_SANITIZE})
    endif()
endfunction()
