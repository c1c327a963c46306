#include "charsets/builder/source.h"

#include "cconv/rulefunc/utf8.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>

namespace charsets {
namespace {

// Null at the end of the text.
sequence sequence_at(std::string_view text, std::size_t offset) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    return offset < text.size() ? read_utf8({bytes + offset, text.size() - offset}) : sequence{};
}

bool is_fit_name(const std::string& name) {
    return name.find("--") == std::string::npos && std::ranges::all_of(name, [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
                      c == '.';
           });
}

} // namespace

source_error::source_error(const std::filesystem::path& file, std::size_t line,
                           const std::string& message)
    : std::runtime_error(file.string() + (line != 0 ? ':' + std::to_string(line) : "") + ": " +
                         message) {}

void source_file::fail(std::size_t line, const std::string& message) const {
    throw source_error(path, line, message);
}

source_file read_source(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        throw source_error(path, 0, "cannot be read");
    }
    source_file file{path, {std::istreambuf_iterator<char>(stream), {}}};
    std::size_t line = 1;
    for (std::size_t offset = 0; offset < file.text.size();) {
        const sequence next = sequence_at(file.text, offset);
        if (next.kind != sequence::whole) {
            file.fail(line, "not UTF-8");
        }
        if (file.text[offset] == '\r') {
            file.fail(line, "carriage return: lines must end with LF");
        }
        if (file.text[offset] == '\n') {
            ++line;
        }
        offset += next.bytes;
    }
    if (file.text.empty() || file.text.back() != '\n') {
        file.fail(line, "the last line does not end with a line feed");
    }
    return file;
}

u32 next_scalar(std::string_view text, std::size_t& offset) {
    const sequence next = sequence_at(text, offset);
    offset += next.bytes;
    return next.scalar;
}

std::vector<std::filesystem::path>
list_sources(const std::filesystem::path& directory,
             std::initializer_list<std::string_view> extensions) {
    std::vector<std::filesystem::path> paths;
    if (!std::filesystem::is_directory(directory)) {
        throw source_error(directory, 0, "is not a directory");
    }
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (std::ranges::find(extensions, entry.path().extension().string()) == extensions.end()) {
            std::string fit;
            for (const std::string_view extension : extensions) {
                fit += (fit.empty() ? "*" : " and *") + std::string(extension);
            }
            throw source_error(entry.path(), 0, "only " + fit + " belongs here");
        }
        if (!is_fit_name(entry.path().filename().string())) {
            throw source_error(entry.path(), 0,
                               "file names may contain only a-z, 0-9, '.', '_' and single '-'");
        }
        paths.push_back(entry.path());
    }
    std::ranges::sort(paths);
    return paths;
}

std::string lower_case(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return text;
}

std::string hex(u32 value, int digits) {
    std::string text;
    for (; value != 0 || digits > 0; value >>= 4, --digits) {
        text.insert(text.begin(), "0123456789ABCDEF"[value & 0xF]);
    }
    return text;
}

bool parse_number(std::string_view text, int base, u32& value) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    return error == std::errc() && stop == end && !text.empty();
}

} // namespace charsets
