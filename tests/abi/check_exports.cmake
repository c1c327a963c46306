# Compares what the library exports with the lists of its interface, one for each version, both ways: an extra
# name fails like a missing one. Run as:
# cmake -DNM=... -DREADELF=... -DLIBRARY=... -DVERSIONS=... -DFILES=... -DSANITIZED=... -P ...
execute_process(COMMAND ${NM} --dynamic --defined-only --format=posix ${LIBRARY}
    OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
set(exported "")
string(REPLACE "\n" ";" lines "${symbols}")
foreach(line IN LISTS lines)
    if(line MATCHES "^PVZAN_[0-9.]+ A" OR (SANITIZED AND line MATCHES "^__"))
        continue() # the name of a version; the sanitizers' own
    endif()
    if(line MATCHES "^([^ ]+)@@PVZAN_([0-9.]+) T ")
        list(APPEND exported "${CMAKE_MATCH_2} function ${CMAKE_MATCH_1}")
    elseif(line MATCHES "^([^ ]+)@@PVZAN_([0-9.]+) ")
        list(APPEND exported "${CMAKE_MATCH_2} data ${CMAKE_MATCH_1}")
    elseif(line MATCHES "^([^ ]+) ") # of no version
        list(APPEND exported "data ${CMAKE_MATCH_1}")
    endif()
endforeach()
set(listed "")
foreach(version list IN ZIP_LISTS VERSIONS FILES)
    file(STRINGS ${list} names)
    list(TRANSFORM names PREPEND "${version} ")
    list(APPEND listed ${names})
endforeach()

set(missing ${listed})
list(REMOVE_ITEM missing ${exported})
set(extra ${exported})
list(REMOVE_ITEM extra ${listed})
foreach(name IN LISTS missing)
    message("listed but not exported: ${name}")
endforeach()
foreach(name IN LISTS extra)
    message("exported but not listed: ${name}")
endforeach()

# The library allocates through its platform layer alone, throws nothing, needs no C++ library, and runs
# nothing when it is loaded.
set(foreign "")
if(NOT SANITIZED)
    execute_process(COMMAND ${NM} --format=posix ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "(_Zn[wa][jm]|__cxa_(throw|allocate_exception|guard_acquire)|_GLOBAL__sub_I|_GLOBAL__I_)[^\n]*|[^\n]*@(GLIBCXX|CXXABI)_[^\n]*"
        foreign "${symbols}")
    foreach(name IN LISTS foreign)
        message("not to be in the library: ${name}")
    endforeach()
endif()
execute_process(COMMAND ${READELF} --dynamic ${LIBRARY} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
if(NOT dynamic MATCHES "SONAME[^\n]*\\[libPVZAN\\.so\\.1\\]")
    message("the library's name for the loader is not libPVZAN.so.1")
    set(foreign TRUE)
endif()
if(missing OR extra OR foreign)
    message(FATAL_ERROR "the library's symbols are not what they should be")
endif()
