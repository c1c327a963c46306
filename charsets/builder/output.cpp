#include "charsets/builder/output.h"

#include <array>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <unistd.h>

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

bool is_definition(const fs::path& path) {
    return path.extension() == ".xml";
}

bool is_ours(const fs::path& path) {
    const fs::path extension = path.extension();
    return is_definition(path) || extension == ".set" || extension == ".txt" || extension == ".cmp";
}

fs::path beside(const fs::path& directory, const char* suffix) {
    fs::path path = directory;
    return path += suffix;
}

// Keeps a second builder from the same place until this one ends, however it ends. Where the system
// has no such locks there is none.
class place_lock {
public:
    explicit place_lock(const fs::path& place)
        : descriptor_(::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        ::flock(descriptor_, LOCK_EX);
    }
    ~place_lock() { ::close(descriptor_); }
    place_lock(const place_lock&) = delete;
    place_lock& operator=(const place_lock&) = delete;

private:
    int descriptor_;
};

// A directory without definitions converts nothing; one without a table would convert wrongly.
void remove_directory(const fs::path& directory) {
    if (fs::exists(directory)) {
        for (const auto& entry : fs::directory_iterator(directory)) {
            if (is_definition(entry.path())) {
                fs::remove(entry.path());
            }
        }
    }
    fs::remove_all(directory);
}

void fill_directory(const directory& built, const fs::path& output) {
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

} // namespace

// An existing cache is trusted as it is, so none may outlive its table: the directory is always
// built anew.
void write_directory(const directory& built, const fs::path& output) {
    const fs::path place = fs::weakly_canonical(output / "x").parent_path();
    fs::create_directories(place.parent_path());
    const place_lock lock(place.parent_path());
    const fs::path next = beside(place, ".next"), previous = beside(place, ".previous");
    remove_directory(next); // what a builder left that was killed
    remove_directory(previous);
    fs::create_directory(next);
    try {
        fill_directory(built, next);
    } catch (...) {
        fs::remove_all(next);
        throw;
    }
    if (fs::exists(place)) {
        for (const auto& entry : fs::directory_iterator(place)) {
            if (!is_ours(entry.path())) {
                fs::copy(entry.path(), next / entry.path().filename(),
                         fs::copy_options::recursive | fs::copy_options::copy_symlinks);
            }
        }
        std::error_code fault; // layered file systems do not rename every directory
        fs::rename(place, previous, fault);
        if (fault) {
            remove_directory(place);
        }
    }
    fs::rename(next, place);
    remove_directory(previous);
}

} // namespace charsets
