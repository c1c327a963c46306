#include "fuzz/support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

void fail(const std::string& what) {
    std::fprintf(stderr, "fuzz: %s\n", what.c_str());
    std::abort();
}

exact_bytes::exact_bytes(bytes from) : data_(new std::uint8_t[from.size()]), size_(from.size()) {
    std::copy(from.begin(), from.end(), data_.get());
}

exact_bytes::exact_bytes(std::size_t size, std::uint8_t fill)
    : data_(new std::uint8_t[size]), size_(size) {
    std::fill_n(data_.get(), size, fill);
}

const test::temp_dir& scratch() {
    static const test::temp_dir made("1/2/3/4/5/6/7/8/");
    return made;
}

} // namespace fuzz
