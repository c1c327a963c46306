# encoding_rs as a static library, from Debian's sources and without a package manager: sets
# ENCODING_RS_LIBRARY where rustc and they are there.
find_program(RUSTC rustc)
file(GLOB crate_sources /usr/share/cargo/registry/encoding_rs-*/src/lib.rs)
file(GLOB cfg_if_sources /usr/share/cargo/registry/cfg-if-1*/src/lib.rs)
if(RUSTC AND crate_sources AND cfg_if_sources)
    list(GET crate_sources 0 crate_source)
    list(GET cfg_if_sources 0 cfg_if_source)
    set(rust_flags --edition 2018 -C opt-level=3 -C panic=abort --cap-lints allow -L .)
    # The large encode tables: without them its encoders search.
    set(features)
    foreach(feature alloc fast-legacy-encode fast-hangul-encode fast-hanja-encode
            fast-kanji-encode fast-gb-hanzi-encode fast-big5-hanzi-encode)
        list(APPEND features --cfg "feature=\"${feature}\"")
    endforeach()
    set(ENCODING_RS_LIBRARY ${CMAKE_CURRENT_BINARY_DIR}/libbench_encoding_rs.a)
    add_custom_command(
        OUTPUT ${ENCODING_RS_LIBRARY}
        COMMAND ${RUSTC} ${rust_flags} --crate-type rlib --crate-name cfg_if ${cfg_if_source}
        COMMAND ${RUSTC} ${rust_flags} ${features} --crate-type rlib --crate-name encoding_rs
                --extern cfg_if=libcfg_if.rlib ${crate_source}
        COMMAND ${RUSTC} ${rust_flags} --crate-type staticlib --crate-name bench_encoding_rs
                --extern encoding_rs=libencoding_rs.rlib
                ${CMAKE_CURRENT_SOURCE_DIR}/encoding_rs.rs
        DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/encoding_rs.rs
        WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
        COMMENT "Building encoding_rs"
        VERBATIM)
endif()
