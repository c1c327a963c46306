// The caller's records, which begin with their size. What both sides know is read or set; what only
// the caller knows must be 0.
#pragma once

#include "platform/base.h"

#include <algorithm>

namespace text {

template <typename Record>
bool is_record(const Record* record) {
    return record != nullptr && record->size >= sizeof record->size;
}

// False if the caller sets something that this library does not know.
template <typename Record>
bool read_record(const Record* given, Record& known) {
    known = {};
    if (given == nullptr) {
        return true;
    }
    const u32 size = given->size;
    const auto* bytes = reinterpret_cast<const u8*>(given);
    std::memcpy(&known, given, std::min<std::size_t>(size, sizeof known));
    return size >= sizeof size && std::all_of(bytes + std::min<std::size_t>(size, sizeof known),
                                              bytes + size, [](u8 byte) { return byte == 0; });
}

template <typename Record>
void fill_record(Record& given, const Record& known) {
    const u32 size = std::min<u32>(given.size, sizeof known);
    std::memcpy(&given, &known, size);
    given.size = size;
}

} // namespace text
