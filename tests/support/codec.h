// What the codec tests share: single calls of rules over whole code spaces, prepared codes into
// buffers of every size, a registry with something missing.
#pragma once

#include "cconv/rulefunc/rules.h"
#include "cconv/table.h"
#include "tests/support/convert.h"

#include <array>
#include <cstdlib>
#include <ostream>

namespace test {

using rule = u32 (*)(session*);

// A code as its bytes, the most significant first.
inline std::string code_text(u32 code, std::size_t length) {
    std::string text;
    while (length-- > 0) {
        text += static_cast<char>(code >> 8 * length);
    }
    return text;
}

// ---- Decoding ----------------------------------------------------------------------------------

// What one call of a decode rule leaves; set and code only for a character.
struct decoded {
    u32 status = 0;
    i32 position = 0;
    u32 set = 0, code = 0;

    bool operator==(const decoded&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const decoded& d) {
    return out << "status " << d.status << " at " << d.position << ", set " << d.set << std::hex
               << " code " << d.code << std::dec;
}

inline decoded decode_next(session& s, rule decode) {
    s.setCode = 0;
    decode(&s);
    if (s.status != PVZAN_DECODED) {
        return {s.status, s.inPos};
    }
    return {s.status, s.inPos, s.charSetNo, s.setCode};
}

// The byte structure of an encoding, independent of its tables.
struct byte_range {
    u8 first, last;
    [[nodiscard]] bool has(u8 byte) const { return byte >= first && byte <= last; }
};

// How many bytes must be there before a character with this first byte is judged.
struct lead_row {
    byte_range lead;
    std::size_t length;
};

// Bytes of a character, its set, and the code: the bytes as a number, masked and marked.
struct character_row {
    std::vector<byte_range> bytes;
    u32 set, mask, mark;

    [[nodiscard]] bool matches(std::span<const u8> input) const {
        bool match = input.size() >= bytes.size();
        for (std::size_t i = 0; match && i < bytes.size(); ++i) {
            match = bytes[i].has(input[i]);
        }
        return match;
    }
};

struct byte_structure {
    std::vector<lead_row> leads;
    std::vector<character_row> characters;

    [[nodiscard]] std::size_t length(u8 lead) const {
        for (const lead_row& row : leads) {
            if (row.lead.has(lead)) {
                return row.length;
            }
        }
        return 1;
    }

    [[nodiscard]] decoded judge(std::span<const u8> input) const {
        if (input.empty()) {
            return {PVZAN_DONE, 0};
        }
        if (input.size() < length(input[0])) {
            return {PVZAN_INPUT_INCOMPLETE, 0};
        }
        for (const character_row& row : characters) {
            if (row.matches(input)) {
                const u32 number = load_big_endian(input.first(row.bytes.size()));
                return {PVZAN_DECODED, static_cast<i32>(row.bytes.size()), row.set,
                        (number & row.mask) | row.mark};
            }
        }
        return {PVZAN_INVALID_INPUT, 1};
    }
};

// Calls a decode rule on one, two and three bytes of every kind, each at the end of memory.
inline void check_code_space(pvzan_session& s, rule decode, const byte_structure& structure) {
    const guarded_buffer buffer(3);
    int failures = 0;
    const auto check = [&](std::initializer_list<u32> input) {
        u8* start = buffer.data() + buffer.size() - input.size();
        std::ranges::transform(input, start, [](u32 byte) { return static_cast<u8>(byte); });
        const std::span<const u8> bytes(start, input.size());
        give_input(s, text_of(bytes));
        const u32 count = s.inCount;
        const decoded got = decode_next(s, decode), expected = structure.judge(bytes);
        const u32 counted = got.status == PVZAN_DECODED ? 1 : 0;
        if (got != expected || s.inCount != count + counted) {
            ADD_FAILURE() << to_hex(text_of(bytes)) << ": expected " << expected << "; got " << got;
            ++failures;
        }
    };
    check({});
    for (u32 first = 0; first < 0x100 && failures < 10; ++first) {
        check({first});
        const bool long_form = structure.length(static_cast<u8>(first)) > 2;
        for (u32 second = 0; second < 0x100; ++second) {
            check({first, second});
            for (u32 third = 0; third < (long_form ? 0x100 : 1); ++third) {
                check({first, second, third});
            }
        }
    }
}

// ---- Encoding ----------------------------------------------------------------------------------

// A prepared code, and the bytes it is written as; none: refused as unrepresentable.
struct written_row {
    u32 set, code;
    std::string expected;
};

inline constexpr std::size_t largest_buffer = 16;

// Lets an encode rule write a prepared code into buffers of every size and from every position,
// with at least spare bytes to be left free.
inline void check_writer(session& s, rule encode, const written_row& row, std::size_t spare) {
    constexpr u8 untouched = 0xDB;
    const guarded_buffer buffer(largest_buffer);
    for (std::size_t size = 0; size <= largest_buffer; ++size) {
        for (std::size_t start = 0; start <= size; ++start) {
            SCOPED_TRACE(testing::Message() << "set " << row.set << " code " << row.code << " from "
                                            << start << " of " << size);
            const std::span<u8> out(buffer.data() + largest_buffer - size, size);
            std::ranges::fill(out, untouched);
            give_output(s, out);
            s.outPos = static_cast<i32>(start);
            s.outSetNo = row.set;
            s.outCode = row.code;
            s.outBytes = 2;
            s.outCode2 = 0;
            s.outCount = 0;
            s.status = PVZAN_OUTPUT_FULL; // write what is prepared
            encode(&s);

            const bool fits = start + row.expected.size() + spare <= size;
            const bool written = fits && !row.expected.empty();
            std::string expected(size, static_cast<char>(untouched));
            if (written) {
                expected.replace(start, row.expected.size(), row.expected);
            }
            const u32 status = row.expected.empty() ? u32{PVZAN_UNREPRESENTABLE}
                               : fits               ? u32{PVZAN_WRITTEN}
                                                    : u32{PVZAN_OUTPUT_FULL};
            ASSERT_EQ(s.status, status);
            ASSERT_EQ(to_hex(text_of(out)), to_hex(expected));
            ASSERT_EQ(s.outPos, static_cast<i32>(start + (written ? row.expected.size() : 0)));
            ASSERT_EQ(s.outCount, written ? 1U : 0U);
        }
    }
}

// ---- The registry, changed for a while ---------------------------------------------------------

inline basic_set& registered(u32 setNo) {
    basic_set* set = findBasicArray(g_ProcessObject.basics, setNo);
    if (set == nullptr) {
        ADD_FAILURE() << "no set " << setNo;
        std::abort();
    }
    return *set;
}

// Makes a set unknown to the registry.
class hidden_set {
public:
    explicit hidden_set(u32 setNo) : set_(registered(setNo)), setNo_(setNo) { set_.setNo = 1; }
    ~hidden_set() { set_.setNo = setNo_; }
    hidden_set(const hidden_set&) = delete;
    hidden_set& operator=(const hidden_set&) = delete;

private:
    basic_set& set_;
    u32 setNo_;
};

// Makes a set look as if its decode table had not been found.
class set_without_table {
public:
    explicit set_without_table(u32 setNo) : set_(registered(setNo)) {
        set_.decodeTable->loaded = 0;
    }
    ~set_without_table() { set_.decodeTable->loaded = 1; }
    set_without_table(const set_without_table&) = delete;
    set_without_table& operator=(const set_without_table&) = delete;

private:
    basic_set& set_;
};

} // namespace test
