# What every C and C++ target of the project is compiled with.
add_library(pvzan_compile INTERFACE)
target_compile_features(pvzan_compile INTERFACE c_std_99 cxx_std_20)
target_compile_options(pvzan_compile INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wcast-qual -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Wextra-semi>
    $<$<BOOL:${PVZAN_WARNINGS_AS_ERRORS}>:-Werror>)

# Sanitizers instrument the whole tree, tests and build-time programs included.
if(PVZAN_SANITIZE)
    add_compile_options(-fsanitize=${PVZAN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${PVZAN_SANITIZE})
endif()
