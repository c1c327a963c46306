// Files of known kinds that are no text, by how they begin.
#include "text/guess/stages.h"

#include <algorithm>
#include <string_view>

namespace text {

namespace {

using namespace std::string_view_literals;

struct signature {
    std::string_view begin;
    const char* what;
    u32 second_at = 0; // a second place to look at, where the first may begin text
    std::string_view second = {};
};

constexpr signature signatures[] = {
    {"%PDF-"sv, "PDF"},
    {"\x89PNG"sv, "PNG image"},
    {"\xFF\xD8\xFF"sv, "JPEG image"},
    {"GIF87a"sv, "GIF image"},
    {"GIF89a"sv, "GIF image"},
    {"PK\3\4"sv, "ZIP archive"},
    {"PK\5\6"sv, "ZIP archive"},
    {"\x1F\x8B"sv, "gzip"},
    {"\xFD"
     "7zXZ\0"sv,
     "xz"},
    {"BZh"sv, "bzip2", 4, "1AY&SY"sv},
    {"\x28\xB5\x2F\xFD"sv, "zstd"},
    {"7z\xBC\xAF\x27\x1C"sv, "7z archive"},
    {"Rar!\x1A\7"sv, "RAR archive"},
    {"\x7F"
     "ELF"sv,
     "ELF program"},
    {"\xFE\xED\xFA\xCE"sv, "Mach-O program"},
    {"\xFE\xED\xFA\xCF"sv, "Mach-O program"},
    {"\xCE\xFA\xED\xFE"sv, "Mach-O program"},
    {"\xCF\xFA\xED\xFE"sv, "Mach-O program"},
    {"\xCA\xFE\xBA\xBE\0"sv, "Mach-O program or Java class"},
    {"SQLite format 3\0"sv, "SQLite database"},
    {"\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1"sv, "OLE document"},
    {"OTTO\0"sv, "font"},
    {"true\0"sv, "font"},
    {"ttcf\0"sv, "font"},
    {"\0\1\0\0\0"sv, "font"},
    {"wOFF\0\1\0\0"sv, "font"},
    {"wOFFOTTO"sv, "font"},
    {"wOF2\0\1\0\0"sv, "font"},
    {"wOF2OTTO"sv, "font"},
    {"RIFF"sv, "WAVE audio", 8, "WAVE"sv},
    {"RIFF"sv, "AVI video", 8, "AVI "sv},
    {"RIFF"sv, "WebP image", 8, "WEBP"sv},
    {"OggS\0"sv, "Ogg"},
    {"fLaC\0"sv, "FLAC audio"},
    {"ID3\2"sv, "MP3 audio"},
    {"ID3\3"sv, "MP3 audio"},
    {"ID3\4"sv, "MP3 audio"},
    {"II*\0"sv, "TIFF image"},
    {"MM\0*"sv, "TIFF image"},
};

} // namespace

const char* known_binary(std::span<const u8> head) {
    const std::string_view text(reinterpret_cast<const char*>(head.data()), head.size());
    for (const signature& s : signatures) {
        if (text.starts_with(s.begin) &&
            text.substr(std::min<std::size_t>(s.second_at, text.size())).starts_with(s.second)) {
            return s.what;
        }
    }
    constexpr std::size_t offset_at = 0x3C;
    if (text.starts_with("MZ") && text.size() >= offset_at + 4) {
        const u32 at = load_little_endian(head.subspan(offset_at, 4));
        if (text.substr(std::min<std::size_t>(at, text.size())).starts_with("PE\0\0"sv)) {
            return "Windows program";
        }
    }
    constexpr std::size_t mp4_at = 4;
    return text.substr(std::min(mp4_at, text.size())).starts_with("ftyp") && head[0] == 0
               ? "MP4 media"
               : nullptr;
}

} // namespace text
