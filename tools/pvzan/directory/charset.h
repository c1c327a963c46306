// Charsets by the names that people use for them, and the library's converters between them.
#pragma once

#include "pvzan_text.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

using bytes_view = std::span<const std::uint8_t>;

// A record of the library, which begins with its size.
template <typename Record>
Record new_record() {
    Record record = {};
    record.size = sizeof record;
    return record;
}

// What a name means; where it means nothing, shown is a name that is like it, or empty.
bool find_charset(const std::string& name, pvzan_name& meaning);
// The meaning of a name that is known.
pvzan_name charset_of(const std::string& name);
// Another name for what a label means to browsers; the label itself where that is nothing else.
std::string name_of_label(const std::string& label);

// The names in a list, without empty ones.
std::vector<std::string> split_names(std::string_view names, char between = ',');

// In small letters, as the charset directory has its names.
std::string fold_name(std::string_view name);

bool same_charset(const pvzan_name& one, const pvzan_name& other);

// The charsets of the settled directory, the best-known ones first.
std::vector<pvzan_name> all_charsets();

struct converter_closer {
    void operator()(pvzan_converter* open) const { pvzan_close(open); }
};
using converter = std::unique_ptr<pvzan_converter, converter_closer>;

// Null where it cannot be made.
converter open_converter(const pvzan_name& from, const pvzan_name& to,
                         const pvzan_open_options& options, pvzan_error* error = nullptr);
converter open_converter(const pvzan_name& from, const pvzan_name& to);

// Feeds a text whose conversion is not wanted; false at the first fault.
bool passes(pvzan_converter& reads, bytes_view text, std::int32_t how = PVZAN_PART);

// Appends the characters of a text. For what is none told is called, which may append something
// else, or end it all with false. False also where there is no such charset.
bool read_characters(bytes_view text, const pvzan_name& from, std::uint32_t order, std::int32_t how,
                     std::u32string& into, const std::function<bool(const pvzan_fault&)>& told);

} // namespace tool
