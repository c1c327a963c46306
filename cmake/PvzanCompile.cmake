# What every C and C++ target of the project is compiled with.
add_library(pvzan_compile INTERFACE)
target_compile_features(pvzan_compile INTERFACE c_std_99 cxx_std_20)
target_compile_options(pvzan_compile INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wcast-qual -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Wextra-semi>
    # g++ 12 sees overlaps at -O3 where there are none.
    $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
    # The index of the names of charsets is sorted by the compiler. What g++ is told to optimise clang does by itself.
    $<$<COMPILE_LANG_AND_ID:CXX,Clang,AppleClang>:-fconstexpr-steps=100000000 -Wno-unknown-attributes>
    $<$<BOOL:${PVZAN_WARNINGS_AS_ERRORS}>:-Werror>)

# Sanitizers instrument the whole tree, tests and build-time programs included. Their checks go further than
# those of an optimised build, which would get in their way.
if(PVZAN_SANITIZE)
    add_compile_options(-fsanitize=${PVZAN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${PVZAN_SANITIZE})
elseif(PVZAN_HARDENING)
    target_compile_options(pvzan_compile INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:-fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
    target_link_options(pvzan_compile INTERFACE -Wl,-z,relro,-z,now)
endif()
