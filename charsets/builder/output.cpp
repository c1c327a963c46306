#include "charsets/builder/output.h"

#include <array>
#include <cstring>
#include <fstream>

namespace charsets {
namespace {

namespace fs = std::filesystem;

void append_unit(std::string& out, u32 unit) {
    out += static_cast<char>(unit & 0xFF);
    out += static_cast<char>(unit >> 8);
}

// Little-endian with a byte-order mark, lines ended by CR LF. The last number of a table is only
// read when two characters follow it: the line end.
std::string to_utf16(std::string_view text) {
    std::string out;
    out.reserve(2 * text.size() + 2);
    append_unit(out, 0xFEFF);
    for (std::size_t offset = 0; offset < text.size();) {
        const u32 scalar = next_scalar(text, offset);
        if (scalar == '\n') {
            append_unit(out, '\r');
        }
        if (scalar >= 0x10000) {
            append_unit(out, 0xD800 + ((scalar - 0x10000) >> 10));
            append_unit(out, 0xDC00 + (scalar & 0x3FF));
        } else {
            append_unit(out, scalar);
        }
    }
    return out;
}

void write_file(const fs::path& path, std::string_view bytes) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) {
        throw source_error(path, 0, "cannot be written");
    }
}

void write_document(const markup& document, const fs::path& path) {
    std::string text = document.source.text;
    text.replace(0, source_declaration.size(), built_declaration);
    write_file(path, to_utf16(text));
}

// The cache holds the pairs in the order of the text, in this machine's byte order: what the
// library would write when it loads the text for the first time.
void write_table(const table& source, const fs::path& path) {
    std::string text;
    std::string cache;
    for (const auto* pairs : {&source.decode_only, &source.two_way}) {
        for (const pair& found : *pairs) {
            text += hex(found.code) + '\t' + hex(found.scalar) + '\n';
            const std::array<u32, 2> entry{found.code, found.scalar};
            std::array<char, sizeof entry> bytes{};
            std::memcpy(bytes.data(), entry.data(), sizeof entry);
            cache.append(bytes.data(), bytes.size());
        }
    }
    write_file(path, to_utf16(text));
    write_file(fs::path(path).replace_extension(".cmp"), cache);
}

bool is_ours(const fs::path& path) {
    const fs::path extension = path.extension();
    return extension == ".xml" || extension == ".set" || extension == ".txt" || extension == ".cmp";
}

} // namespace

void write_directory(const directory& built, const fs::path& output) {
    fs::create_directories(output);
    // An existing cache is trusted as it is, so none may outlive its table.
    for (const auto& entry : fs::directory_iterator(output)) {
        if (is_ours(entry.path())) {
            fs::remove(entry.path());
        }
    }
    for (const auto& [file, found] : built.charsets) {
        write_document(found.document, output / file);
    }
    for (const auto& [file, found] : built.sets) {
        write_document(found.document, output / file);
    }
    for (const auto& [file, found] : built.tables) {
        write_table(found, output / file);
    }
}

} // namespace charsets
