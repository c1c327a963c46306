// The list of names, names.inc, as constants: its rows, and all names by their hashes. For
// names.cpp alone.
#pragma once

#include "platform/base.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace text {

inline constexpr std::string_view list =
#include "names.inc"
    ;

// A part of the list: numbers, which a loader need not relocate.
class part {
public:
    constexpr part() = default;
    constexpr explicit part(std::string_view text)
        : at_(static_cast<u16>(text.data() - list.data())), size_(static_cast<u16>(text.size())) {}
    constexpr operator std::string_view() const { return {list.data() + at_, size_}; }

private:
    u16 at_ = 0, size_ = 0;
};
static_assert(list.size() < 1U << 16U);

// A line of the list; or names that mean no one charset, where charset is empty.
struct row {
    part shown, charset, form, group, relatives, names, labels;

    [[nodiscard]] constexpr std::string_view id() const { return charset; }
    [[nodiscard]] constexpr bool has(std::string_view word) const {
        return std::string_view(form).find(word) != std::string_view::npos;
    }
};

// What stands before a separator, which is taken off with it.
constexpr std::string_view take(std::string_view& text, char separator) {
    const std::size_t size = std::min(text.find(separator), text.size());
    const std::string_view taken(text.data(), size);
    text.remove_prefix(std::min(size + 1, text.size()));
    return taken;
}

// The next line that is none of the comments.
constexpr std::string_view take_line(std::string_view& text) {
    std::string_view line;
    do {
        line = take(text, '\n');
    } while (!text.empty() && (line.empty() || line.front() == '#'));
    return line;
}

constexpr std::size_t count_rows() {
    std::size_t count = 0;
    for (std::string_view rest = list; !take_line(rest).empty();) {
        ++count;
    }
    return count;
}

constexpr auto read_rows() {
    std::array<row, count_rows()> read{};
    std::string_view rest = list;
    for (row& r : read) {
        std::string_view line = take_line(rest);
        for (part* column :
             {&r.shown, &r.charset, &r.form, &r.group, &r.relatives, &r.names, &r.labels}) {
            *column = part(take(line, '\t'));
        }
    }
    return read;
}
inline constexpr auto rows = read_rows();

constexpr bool is_separator(char c) {
    return c == '-' || c == '_' || c == ' ';
}

// A letter or digit that counts, and what comes behind it; NUL at the end.
constexpr char next_plain(const char*& text, const char* end) {
    while (text != end && is_separator(*text)) {
        ++text;
    }
    return text == end ? '\0' : fold_ascii(*text++);
}

constexpr bool same_name(std::string_view a, std::string_view b) {
    const char *p = a.data(), *q = b.data();
    for (;;) {
        const char c = next_plain(p, a.data() + a.size());
        if (c != next_plain(q, b.data() + b.size())) {
            return false;
        }
        if (c == '\0') {
            return true;
        }
    }
}

constexpr u32 hash_of(std::string_view name) {
    u32 hash = 2166136261U;
    const char* p = name.data();
    while (const char c = next_plain(p, name.data() + name.size())) {
        hash = (hash ^ static_cast<u8>(c)) * 16777619U;
    }
    return hash;
}

// The names of a row, one after the other; shown is the first.
class names_of {
public:
    constexpr explicit names_of(const row& r) : rest_(r.names) {
        if (!r.id().empty()) {
            shown_ = r.shown;
        }
    }
    constexpr bool read(std::string_view& name) {
        name = shown_.empty() ? take(rest_, ' ') : shown_;
        shown_ = {};
        return !name.empty();
    }

private:
    std::string_view shown_, rest_;
};

struct known_name {
    u32 hash;
    u16 row;
};

constexpr std::size_t count_names() {
    std::size_t count = 0;
    for (const row& r : rows) {
        names_of names(r);
        for (std::string_view name; names.read(name);) {
            ++count;
        }
    }
    return count;
}

// All names by their hashes, so that one is found without a look at the others.
constexpr auto index_names() {
    std::array<known_name, count_names()> index{};
    std::size_t at = 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        names_of names(rows[i]);
        for (std::string_view name; names.read(name);) {
            index[at++] = {hash_of(name), static_cast<u16>(i)};
        }
    }
    std::ranges::sort(index, [](const known_name& a, const known_name& b) {
        return a.hash != b.hash ? a.hash < b.hash : a.row < b.row;
    });
    return index;
}
inline constexpr auto known_names = index_names();

constexpr bool is_in(std::string_view words, std::string_view name) {
    while (!words.empty()) {
        if (same_name(take(words, ' '), name)) {
            return true;
        }
    }
    return false;
}

} // namespace text
