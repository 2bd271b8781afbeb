# Run by ctest; see CMakeLists.txt. WORK_DIR is this test's own and is removed at both ends.
function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed (${result}): ${ARGV}\n${output}")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(PREFIX ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})

run(${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK_DIR}/package -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${PREFIX}
    -DCMAKE_C_COMPILER=${C_COMPILER} -DWANTED_VERSION=${VERSION})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/package)
run(${WORK_DIR}/package/consumer ${VERSION})

# The tree is moved, to see that pkg-config finds its prefix by its own place.
file(RENAME ${PREFIX} ${WORK_DIR}/moved)
set(ENV{PKG_CONFIG_PATH} ${WORK_DIR}/moved/${LIBDIR}/pkgconfig)
execute_process(COMMAND pkg-config --cflags --libs NimbrelEngine
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${C_COMPILER} -std=c11 -Wall -Wextra -Wpedantic -Werror ${CONSUMER}/consumer.c ${flags}
    -Wl,-rpath,${WORK_DIR}/moved/${LIBDIR} -o ${WORK_DIR}/consumer)
run(${WORK_DIR}/consumer ${VERSION})
file(REMOVE_RECURSE ${WORK_DIR})
