# Installs the build into a temporary prefix, moves it, and converts there with both charset directories.
set(place ${BUILD}/install-test)
file(REMOVE_RECURSE ${place})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${place}/first
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${place}/first ${place}/second)
set(tool ${place}/second/${BINDIR}/pvzan)
string(ASCII 129 96 wave_dash) # the first disputed character, in Shift_JIS
file(WRITE ${place}/text ${wave_dash})

execute_process(COMMAND ${tool} --version OUTPUT_VARIABLE version COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "${place}/second/[^ ]*" charsets ${version})
if(NOT charsets)
    message(FATAL_ERROR "not the charset directory of the moved tree: ${version}")
endif()
foreach(row "base2;efbd9e" "base2-jis;e3809c")
    list(GET row 0 directory)
    list(GET row 1 expected)
    execute_process(COMMAND ${tool} convert --charset-dir ${charsets}/../${directory} -f shift_jis
                            -t utf-8 ${place}/text -o ${place}/out COMMAND_ERROR_IS_FATAL ANY)
    file(READ ${place}/out got HEX)
    if(NOT got STREQUAL expected)
        message(FATAL_ERROR "${directory}: got ${got}, expected ${expected}")
    endif()
endforeach()
file(REMOVE_RECURSE ${place})
