// Definition files as the library reads them: found and cut by text search, not as XML.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// Charsets that are read when they are asked for lie there.
inline constexpr std::string_view further_folder = "further/";

enum class text_units { utf16_little, utf16_big, ucs4_little, ucs4_big };

struct definition_text {
    std::string text; // ASCII; other characters are "?"
    text_units units = text_units::utf16_little;
    std::string fault; // why it cannot be read; empty when it can
};

// Reads a file of the directory; units are those assumed where the file declares none.
definition_text read_definition_text(const std::filesystem::path& directory, std::string_view name,
                                     text_units units = text_units::utf16_little);

// The characters of a file in those units.
std::string decode_units(std::string_view bytes, text_units units);

struct element {
    std::size_t start = 0, end = 0; // of its content, attributes included
    [[nodiscard]] std::string_view in(std::string_view text) const {
        return text.substr(start, end - start);
    }
};

std::optional<element> find_element(std::string_view text, std::string_view name, std::size_t from);
// The quoted value behind a key, as in key="value".
std::optional<std::string> quoted(std::string_view text, std::string_view key,
                                  std::size_t from = 0);
// The name of the first entity reference.
std::optional<std::string> entity_reference(std::string_view text);
// The file that an entity's declaration names.
std::optional<std::string> entity_file(std::string_view document, const std::string& entity);

} // namespace tool
