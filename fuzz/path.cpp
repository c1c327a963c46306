// Path functions: nothing outside the strings, nothing beyond the fields, and a path that fits
// comes back from its parts.
#include "fuzz/support.h"

#include "platform/platform.h"

#include <algorithm>

namespace {

void split_and_merge(const char* path, std::size_t length) {
    const auto parts = std::make_unique<split_path>();
    splitPath(path, parts.get());
    const fuzz::exact_bytes out(text_bytes, 0xA5);
    char* merged = reinterpret_cast<char*>(out.data());
    mergePath(merged, parts.get());
    const std::size_t size = ::strnlen(merged, text_bytes);
    fuzz::expect(size < text_bytes, "a merged path without an end");
    fuzz::expect(length >= text_bytes || std::strcmp(merged, path) == 0,
                 "a path does not come back from its parts");
}

void walk(const char* path, std::size_t length) {
    for (std::size_t at = 0; at <= length; ++at) {
        const auto step = static_cast<std::size_t>(ZAN_nextPathDelimiter(path + at));
        fuzz::expect(at + step <= length, "a delimiter behind the end");
        fuzz::expect(path[at + step] == '\0' || path[at + step] == '/', "no delimiter");
        at += step;
    }
    const auto point = static_cast<std::size_t>(ZAN_getPathBreak(path));
    fuzz::expect(point <= length && (point == 0 || path[point] == '/'), "no path break");
}

void find_last(char* path, std::size_t length, char c) {
    const char* found = _right(path, c);
    fuzz::expect(found == nullptr || (found >= path && found < path + length && *found == c),
                 "not that character");
    fuzz::expect(found == nullptr || std::strchr(found + 1, c) == nullptr, "not the last one");
}

// A pattern that stays in the scratch directory.
void list(std::string pattern) {
    std::erase_if(pattern, [](char c) { return c == '/' || c == '\0'; });
    const auto listing = std::make_unique<directory_listing>();
    if (openDir((fuzz::scratch_directory() + "/" + pattern.substr(0, 40)).c_str(), listing.get()) !=
        0) {
        while (readDir(listing.get()) != 0) {
            fuzz::expect(listing->parts.extension[0] != '\0', "an entry without a name");
        }
        closeDir(listing.get());
    }
}

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    for (const char* name : {"/a.xml", "/b.xml", "/[c", "/.d"}) {
        fuzz::write_file(fuzz::scratch_directory() + name, {});
    }
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::input in({data, std::min<std::size_t>(size, 9000)});
    const std::uint32_t choices = in.byte();
    const std::uint32_t times = choices % 8 == 0 ? 1 + in.byte() * 4 : 1;
    std::string text;
    for (std::uint32_t i = 0; i < times && text.size() < 9000; ++i) {
        text += fuzz::as_text(in.rest());
    }
    text.resize(std::strlen(text.c_str()));
    const fuzz::exact_bytes exact(
        {reinterpret_cast<const std::uint8_t*>(text.c_str()), text.size() + 1});
    char* path = reinterpret_cast<char*>(exact.data());
    split_and_merge(path, text.size());
    walk(path, text.size());
    for (const char c : {'/', '.', 'a', static_cast<char>(choices), '\0'}) {
        find_last(path, text.size(), c);
    }
    const fuzz::exact_bytes out(text_bytes, 0xA5);
    if (temporary_name(*reinterpret_cast<char(*)[text_bytes]>(out.data()), path)) {
        fuzz::expect(::strnlen(reinterpret_cast<char*>(out.data()), text_bytes) < text_bytes,
                     "a temporary name without an end");
    }
    list(text);
    return 0;
}
