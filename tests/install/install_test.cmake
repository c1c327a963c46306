# Installs the build into a temporary prefix, moves it, and uses it there: the tool with both charset directories,
# then projects that find the library by CMake and by pkg-config, and one that has it inside.
# Run as: cmake -D BUILD=... -D SOURCE=... -D BINDIR=... -D LIBDIR=... -D CC=... -D CXX=... -D SANITIZED=... -P ...
set(place ${BUILD}/install-test)
file(REMOVE_RECURSE ${place})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${place}/first
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
set(prefix ${place}/second)
file(RENAME ${place}/first ${prefix})
set(tool ${prefix}/${BINDIR}/pvzan)
string(ASCII 129 96 wave_dash) # the first disputed character, in Shift_JIS
file(WRITE ${place}/text ${wave_dash})

execute_process(COMMAND ${tool} --version OUTPUT_VARIABLE version COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "${prefix}/[^ ]*" charsets ${version})
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

# build(name source target definitions...): configures a project and builds a target of it.
function(build name source target)
    execute_process(COMMAND ${CMAKE_COMMAND} -G Ninja -S ${source} -B ${place}/${name} ${ARGN}
                    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${CMAKE_COMMAND} --build ${place}/${name} --target ${target}
                    OUTPUT_VARIABLE output RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "${name}: ${output}")
    endif()
endfunction()

if(NOT SANITIZED)
    set(ENV{CC} ${CC})
    set(ENV{CXX} ${CXX})
    set(consumer ${CMAKE_CURRENT_LIST_DIR})
    build(installed ${consumer} run -D CMAKE_PREFIX_PATH=${prefix})
    build(inside ${consumer} run -D PVZAN_SOURCE=${SOURCE} -D CHARSETS=${charsets})
    build(examples ${SOURCE}/examples all -D CMAKE_PREFIX_PATH=${prefix})
    execute_process(COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${place}/examples --output-on-failure
                    OUTPUT_VARIABLE output RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "${output}")
    endif()

    set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
    set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
    foreach(static "" --static)
        execute_process(COMMAND pkg-config ${static} --cflags --libs pvzan
                        OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
        if(static)
            string(REPLACE "-lPVZAN" "-l:libPVZAN.a" flags "${flags}")
        endif()
        separate_arguments(flags)
        execute_process(COMMAND pkg-config --variable=charsetdir pvzan
                        OUTPUT_VARIABLE charsets OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
        execute_process(COMMAND ${CC} ${consumer}/consumer.c ${flags} -o ${place}/consumer
                        COMMAND_ERROR_IS_FATAL ANY)
        execute_process(COMMAND ${place}/consumer ${charsets} COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
endif()
file(REMOVE_RECURSE ${place})
