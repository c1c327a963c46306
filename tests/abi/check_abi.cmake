# Compares the library's interface, the layouts of its public types included, with the one released.
# Run as: cmake -D LIBRARY=... -D RELEASED=... -D WRITE=... -P ...
# WRITE ON writes the interface as it is now to RELEASED instead.
if(WRITE)
    execute_process(
        COMMAND abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --exported-interfaces-only
                --out-file ${RELEASED} ${LIBRARY}
        COMMAND_ERROR_IS_FATAL ANY)
    return()
endif()
execute_process(
    COMMAND abidiff --exported-interfaces-only --suppressions ${CMAKE_CURRENT_LIST_DIR}/private_types.suppr
            ${RELEASED} ${LIBRARY}
    OUTPUT_VARIABLE report RESULT_VARIABLE changed)
if(changed)
    message(FATAL_ERROR "the interface is not the one released:\n${report}")
endif()
