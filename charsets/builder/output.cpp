#include "charsets/builder/output.h"

#include "platform/unicode.h"

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
        if (scalar >= first_supplementary) {
            append_unit(out, high_surrogate(scalar));
            append_unit(out, low_surrogate(scalar));
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

constexpr const char* further_folder = "further";

// Where a file lies in the directory.
fs::path place_of(const directory& built, const std::string& file) {
    return built.further.contains(file) ? fs::path(further_folder) / file : fs::path(file);
}

// Names files as they lie in the directory.
std::string document_bytes(const markup& document, const directory& built) {
    std::string text = document.source.text;
    text.replace(0, source_declaration.size(), built_declaration);
    for (const entity& declared : document.entities) {
        const std::string named = declared.name + " SYSTEM \"";
        const std::string before = named + declared.file + '"';
        text.replace(text.find(before), before.size(),
                     named + place_of(built, declared.file).string() + '"');
    }
    return to_utf16(text);
}

// The cache holds the pairs in the order of the text, in this machine's byte order: what the
// library would write when it loads the text for the first time.
void write_table(const table& source, const fs::path& path) {
    std::string text;
    std::string cache;
    for (const pair& found : source.in_order()) {
        text += hex(found.code) + '\t' + hex(found.scalar) + '\n';
        const std::array<u32, 2> entry{found.code, found.scalar};
        std::array<char, sizeof entry> bytes{};
        std::memcpy(bytes.data(), entry.data(), sizeof entry);
        cache.append(bytes.data(), bytes.size());
    }
    write_file(path, to_utf16(text));
    write_file(fs::path(path).replace_extension(".cmp"), cache);
}

void append_number(std::string& out, u32 value) {
    for (; value >= 0x80; value >>= 7) {
        out += static_cast<char>(value | 0x80);
    }
    out += static_cast<char>(value);
}

void append_distance(std::string& out, u32 from, u32 to) {
    const u32 distance = to - from;
    append_number(out, distance < 0x80000000U ? 2 * distance : 2 * ~distance + 1);
}

// As packed_pairs in cconv/directory/embedded.h unpacks it, in the order of the cache.
std::string packed(const table& source) {
    std::string out;
    u32 code = 0, scalar = 0;
    const std::vector<pair> pairs = source.in_order();
    for (auto run = pairs.begin(); run != pairs.end();) {
        auto end = run + 1;
        while (end != pairs.end() && end->code == end[-1].code + 1) {
            ++end;
        }
        append_number(out, static_cast<u32>(end - run));
        append_distance(out, code, run->code);
        code = end[-1].code + 1;
        for (; run != end; ++run) {
            append_distance(out, scalar, run->scalar);
            scalar = run->scalar + 1;
        }
    }
    return out;
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
    if (!built.further.empty()) {
        fs::create_directory(output / further_folder);
    }
    for (const auto& [file, found] : built.charsets) {
        write_file(output / place_of(built, file), document_bytes(found.document, built));
    }
    for (const auto& [file, found] : built.sets) {
        write_file(output / place_of(built, file), document_bytes(found.document, built));
    }
    for (const auto& [file, found] : built.tables) {
        write_table(found, output / place_of(built, file));
    }
}

// What somebody else put into the directory stays.
void keep_others(const fs::path& from, const fs::path& to) {
    for (const auto& entry : fs::directory_iterator(from)) {
        const fs::path kept = to / entry.path().filename();
        if (entry.path().filename() == further_folder && fs::is_directory(kept)) {
            keep_others(entry.path(), kept);
        } else if (!is_ours(entry.path())) {
            fs::copy(entry.path(), kept,
                     fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        }
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
        keep_others(place, next);
        std::error_code fault; // layered file systems do not rename every directory
        fs::rename(place, previous, fault);
        if (fault) {
            remove_directory(place);
        }
    }
    fs::rename(next, place);
    remove_directory(previous);
}

void write_embedded(const directory& built, const fs::path& output) {
    std::map<std::string, std::string> files;
    for (const auto& [file, found] : built.charsets) {
        files[place_of(built, file)] = document_bytes(found.document, built);
    }
    for (const auto& [file, found] : built.sets) {
        files[place_of(built, file)] = document_bytes(found.document, built);
    }
    for (const auto& [file, found] : built.tables) {
        files[place_of(built, file).replace_extension(".cmp").string()] = packed(found);
    }
    std::string text = "#include \"cconv/directory/embedded.h\"\n\nnamespace {\n\n", list;
    for (const auto& [file, bytes] : files) {
        const std::string array =
            "file_" + std::to_string(std::distance(files.begin(), files.find(file)));
        text += "constexpr u8 " + array + "[] = {";
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            text +=
                std::to_string(static_cast<unsigned char>(bytes[i])) + (i % 32 == 31 ? ",\n" : ",");
        }
        text += "};\n";
        list += "    {\"" + file + "\", " + array + "},\n";
    }
    text += "constexpr embedded_file files[] = {\n" + list + "};\n\n} // namespace\n\n" +
            "extern const std::span<const embedded_file> embedded_files = files;\n";
    write_file(output, text);
}

} // namespace charsets
