// Documents as a test's own objects.
#pragma once

#include "tests/support/test.h"

#include "cconv/definition/document_search.h"

namespace test {

using ::owned_document;

inline std::u32string text_of(const document& d) {
    return {d.text, d.text + d.textBytes / 4};
}

inline std::u32string ascii(std::string_view text) {
    return {text.begin(), text.end()};
}

// Of a character, as the operations count.
inline i32 offset(std::size_t index) {
    return static_cast<i32>(4 * index);
}

// A document in memory, without the normalisation of files.
struct made_document : owned_document {
    explicit made_document(std::string_view from) {
        text = static_cast<u32*>(ZAN_malloc(offset(from.size() + 1)));
        std::copy(from.begin(), from.end(), text);
        textBytes = offset(from.size());
    }
};

} // namespace test
