// Reads the element iso2022 strictly: it is small, and a rule depends on every word of it.
#include "cconv/definition/iso2022_read.h"

#include "cconv/definition/document.h"
#include "cconv/definition/tags.h"

#include <cstdarg>
#include <cstdio>
#include <optional>
#include <string_view>

namespace {

// The next word of a text, which is removed from it; empty at the end.
std::string_view next_word(std::string_view& text) {
    while (!text.empty() && is_blank(static_cast<u8>(text.front()))) {
        text.remove_prefix(1);
    }
    std::size_t length = 0;
    while (length < text.size() && !is_blank(static_cast<u8>(text[length]))) {
        ++length;
    }
    const std::string_view word(text.data(), length);
    text.remove_prefix(length);
    return word;
}

bool same_letters(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, fold_ascii, fold_ascii);
}

std::optional<u32> hex_number(std::string_view word, u32 most) {
    u32 value = 0;
    for (const char c : word) {
        if (!is_hex_digit(static_cast<u8>(c)) || value > 0xFFFFFFF) {
            return std::nullopt;
        }
        value = value << 4 | hex_value(static_cast<u8>(c));
    }
    return !word.empty() && value <= most ? std::optional(value) : std::nullopt;
}

// ---- The element -------------------------------------------------------------------------------

class element_reader {
public:
    element_reader(std::span<const u32> text, std::size_t at, std::span<const char* const> members,
                   iso2022& out, complaint& wrong)
        : tags_(text, at), members_(members), out_(out), wrong_(wrong) {}

    bool read() {
        tag whole;
        if (!tags_.read(whole) || whole.name.view() != "iso2022") {
            return fail("the rule needs an element iso2022 after the sets");
        }
        for (;;) {
            if (!tags_.read(tag_)) {
                return fail("the element iso2022 is not closed or contains a malformed tag");
            }
            const std::string_view name = tag_.name.view();
            if (name == "/iso2022") {
                return read_whole(whole);
            }
            if (!(name == "set"         ? read_set()
                  : name == "designate" ? read_sequence(sequence_kind::designation)
                  : name == "shift"     ? read_sequence(sequence_kind::shift)
                  : name == "single"    ? read_sequence(sequence_kind::single)
                  : name == "literal"   ? read_sequence(sequence_kind::literal)
                  : name == "eight"     ? read_eight()
                                        : fail("iso2022 has no element %s", text_of(name)))) {
                return false;
            }
        }
    }

private:
    __attribute__((format(printf, 2, 3))) bool fail(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(wrong_.text, sizeof wrong_.text, format, arguments);
        va_end(arguments);
        return false;
    }
    // A word as a string, for a message.
    const char* text_of(std::string_view word) {
        const std::size_t size = std::min(word.size(), sizeof word_ - 1);
        std::memcpy(word_, word.data(), size);
        word_[size] = '\0';
        return word_;
    }
    bool knows_attributes(std::initializer_list<std::string_view> known, const tag& in) {
        for (std::size_t i = 0; i < in.count; ++i) {
            const std::string_view name = in.attributes[i].name.view();
            if (std::ranges::find(known, name) == known.end()) {
                return fail("%s is not an attribute of this element", text_of(name));
            }
        }
        return true;
    }

    // The number of the set with that name; 0 if there is none.
    [[nodiscard]] u8 set_number(std::string_view name) const {
        for (u8 i = 0; i < out_.set_count; ++i) {
            if (name == out_.set_list[i].name) {
                return static_cast<u8>(i + 1);
            }
        }
        return no_set;
    }
    static std::optional<u8> register_number(std::string_view name) {
        const bool is_one = name.size() == 2 && name[0] == 'G' && name[1] >= '0' && name[1] <= '3';
        return is_one ? std::optional(static_cast<u8>(name[1] - '0')) : std::nullopt;
    }

    bool read_set() {
        if (!knows_attributes({"name", "member", "bytes", "add"}, tag_)) {
            return false;
        }
        const std::string_view name = tag_.value("name");
        graphic_set& set =
            out_.set_list[std::min<std::size_t>(out_.set_count, iso2022::most_sets - 1)];
        if (out_.set_count == iso2022::most_sets) {
            return fail("there are more than %zu sets", iso2022::most_sets);
        }
        set = {};
        if (name.empty() || name.size() >= sizeof set.name || name == "none" ||
            set_number(name) != no_set) {
            return fail("each set needs a different name of fewer than %zu letters",
                        sizeof set.name);
        }
        std::ranges::copy(name, set.name);
        const std::optional<u32> add =
            tag_.value("add").empty() ? 0 : hex_number(tag_.value("add"), ~0U);
        if (!add) {
            return fail("%s: add= is not a hexadecimal number", set.name);
        }
        set.add = *add;
        if (!read_ranges(set) || !read_members(set)) {
            return false;
        }
        ++out_.set_count;
        return true;
    }
    // Reads ranges such as "21-7E 21-7E".
    bool read_ranges(graphic_set& set) {
        std::string_view ranges = tag_.value("bytes");
        for (std::string_view range = next_word(ranges); !range.empty();
             range = next_word(ranges)) {
            const auto first = range.size() == 5 && range[2] == '-'
                                   ? hex_number({range.data(), 2}, 0xFF)
                                   : std::nullopt;
            const auto last = first ? hex_number({range.data() + 3, 2}, 0xFF) : std::nullopt;
            if (!last || *last < *first || set.width == 2) {
                return fail("%s: bytes= must be one or two ranges such as 21-7E", set.name);
            }
            set.first[set.width] = static_cast<u8>(*first);
            set.last[set.width++] = static_cast<u8>(*last);
        }
        if (set.width == 0) {
            return fail("%s: bytes= must be one or two ranges such as 21-7E", set.name);
        }
        const bool breaks = set.width > 1 && (set.may_be('\n', 0) || set.may_be('\r', 0));
        return !breaks || fail("%s: 0A and 0D are line breaks and cannot be codes", set.name);
    }
    bool read_members(graphic_set& set) {
        std::string_view names = tag_.value("member");
        for (std::string_view name = next_word(names); !name.empty(); name = next_word(names)) {
            const auto found = std::ranges::find_if(
                members_, [=](const char* member) { return same_letters(member, name); });
            if (found == members_.end()) {
                return fail("%s: %s is not one of the charset's sets", set.name, text_of(name));
            }
            if (set.member_count == set.members.size()) {
                return fail("%s has more than %zu members", set.name, set.members.size());
            }
            set.members[set.member_count++] = static_cast<u8>(found - members_.begin());
        }
        return set.member_count > 0 || fail("%s: member= names no set", set.name);
    }

    bool read_sequence(sequence_kind kind) {
        if (!knows_attributes({"bytes", "register", "set", "in", "header", "code"}, tag_)) {
            return false;
        }
        if (out_.sequence_count == iso2022::most_sequences) {
            return fail("there are more than %zu sequences", iso2022::most_sequences);
        }
        control_sequence& made = out_.sequence_list[out_.sequence_count];
        made = {};
        made.kind = kind;
        std::string_view bytes = tag_.value("bytes");
        for (std::string_view word = next_word(bytes); !word.empty(); word = next_word(bytes)) {
            const auto byte = word.size() == 2 ? hex_number(word, 0xFF) : std::nullopt;
            if (!byte || made.length == made.bytes.size()) {
                return fail("bytes= must be at most %zu bytes such as 1B 24 42", made.bytes.size());
            }
            made.bytes[made.length++] = static_cast<u8>(*byte);
        }
        const std::string_view inside = tag_.value("in"), header = tag_.value("header");
        made.inside = set_number(inside);
        made.header = header == "yes";
        if (made.length == 0 || (made.inside == no_set && !inside.empty()) ||
            (!made.header && !header.empty())) {
            return fail("\"%s\": bytes= is missing, in= names no set, or header= is not yes",
                        text_of(tag_.value("bytes")));
        }
        const bool second =
            made.header && std::ranges::any_of(out_.sequences(), &control_sequence::header);
        if (second) {
            return fail("\"%s\" is a second header", text_of(tag_.value("bytes")));
        }
        if (made.bytes[0] == '\n' || made.bytes[0] == '\r') {
            return fail("\"%s\" begins with a line break", text_of(tag_.value("bytes")));
        }
        if (!read_meaning(made) || !is_unlike_others(made)) {
            return false;
        }
        out_.opens[made.bytes[0] >> 6] |= u64{1} << (made.bytes[0] & 63);
        out_.escapes = out_.escapes || made.bytes[0] == escape_byte;
        ++out_.sequence_count;
        return true;
    }
    bool read_meaning(control_sequence& made) {
        if (made.kind == sequence_kind::literal) {
            const std::string_view code = tag_.value("code");
            const auto number = hex_number(code, 0x7F);
            made.silent = code.empty();
            made.code = static_cast<u8>(number.value_or(0));
            return made.silent ||
                   (number && out_.set_count > 0 && out_.set(1).width == 1 &&
                    out_.set(1).may_hold(*number)) ||
                   fail("code= is not a code of the first set");
        }
        const auto which = register_number(tag_.value("register"));
        made.set = set_number(tag_.value("set"));
        if (!which || (made.set == no_set) == (made.kind == sequence_kind::designation)) {
            return fail("\"%s\" needs a register G0 to G3%s", text_of(tag_.value("bytes")),
                        made.kind == sequence_kind::designation ? ", and one of the sets above"
                                                                : ", and no set");
        }
        made.which = *which;
        return true;
    }
    // No sequence may be the beginning of another one, so that reading never depends on what
    // follows.
    bool is_unlike_others(const control_sequence& made) {
        for (const control_sequence& other : out_.sequences()) {
            const std::size_t common = std::min(made.length, other.length);
            const bool apart =
                made.inside != no_set && other.inside != no_set && made.inside != other.inside;
            if (!apart && std::equal(made.bytes.begin(),
                                     made.bytes.begin() + static_cast<std::ptrdiff_t>(common),
                                     other.bytes.begin())) {
                return fail("\"%s\" is the beginning of another sequence, or begins with one",
                            text_of(tag_.value("bytes")));
            }
        }
        return true;
    }
    bool read_eight() {
        const auto which = register_number(tag_.value("register"));
        out_.eight = which.value_or(register_count);
        return (which && knows_attributes({"register"}, tag_)) ||
               fail("eight needs a register G0 to G3");
    }

    // ---- What holds the parts together

    bool read_whole(const tag& whole) {
        const auto first = out_.sets().begin();
        if (out_.set_count == 0 || first->width != 1 || !first->may_be('\n', 0) ||
            !first->may_be('\r', 0)) {
            return fail("the first set must have single-byte codes, with 0A and 0D among them");
        }
        wanted_state initial{};
        if (!knows_attributes({"initial", "line", "close", "lineread"}, whole) ||
            !read_state("initial", whole.value("initial"), initial) ||
            !read_state("line", whole.value("line"), out_.line) ||
            !read_state("close", whole.value("close"), out_.close)) {
            return false;
        }
        out_.initial = is_state | initial.value;
        const std::string_view lines = whole.value("lineread");
        out_.lines = lines == "reset"    ? line_reading::reset
                     : lines == "refuse" ? line_reading::refuse
                                         : line_reading::keep;
        if (!lines.empty() && lines != "keep" && out_.lines == line_reading::keep) {
            return fail("lineread= must be keep, reset or refuse");
        }
        return registers_can_be_filled() && is_reachable("line", out_.line) &&
               is_reachable("close", out_.close) && sets_can_be_used();
    }

    // Reads a state such as "G0=ascii G1=none shift=G0".
    bool read_state(const char* what, std::string_view text, wanted_state& state) {
        for (std::string_view word = next_word(text); !word.empty(); word = next_word(text)) {
            const std::size_t sign = std::min(word.find('='), word.size() - 1);
            const std::string_view key(word.data(), sign),
                value(word.begin() + sign + 1, word.end());
            const auto which = register_number(key == "shift" ? value : key);
            const u8 set = set_number(value);
            if (!which || (key != "shift" && set == no_set && value != "none")) {
                return fail("%s: %s must be like G1=NAME, G1=none or shift=G1", what,
                            text_of(word));
            }
            if (key == "shift") {
                state = {with_shift(state.value, *which), state.mask | shift_mask};
            } else {
                state = {with_set(state.value, *which, set), state.mask | register_mask(*which)};
            }
        }
        return true;
    }

    [[nodiscard]] bool can_hold(u32 which, u32 set) const {
        return set_in(out_.initial, which) == set || designates(which, set);
    }
    [[nodiscard]] bool can_shift(u32 which) const {
        bool shifts = false, there = false;
        for (const control_sequence& s : out_.sequences()) {
            shifts = shifts || s.kind == sequence_kind::shift;
            there = there || (s.kind == sequence_kind::shift && s.which == which);
        }
        return there || (!shifts && shifted(out_.initial) == which);
    }
    bool registers_can_be_filled() {
        const auto can_be_filled = [&](u32 which) {
            return std::ranges::any_of(out_.sets(), [&](const graphic_set& set) {
                return can_hold(which, static_cast<u32>(&set - out_.set_list.data()) + 1);
            });
        };
        for (const control_sequence& s : out_.sequences()) {
            if ((s.kind == sequence_kind::shift || s.kind == sequence_kind::single) &&
                !can_be_filled(s.which)) {
                return fail("register G%u is shifted in, but no set can be designated to it",
                            u32{s.which});
            }
        }
        if (out_.eight < register_count && !can_be_filled(out_.eight)) {
            return fail(
                "register G%u is for the bytes from A0 on, but no set can be designated to it",
                u32{out_.eight});
        }
        return set_in(out_.initial, shifted(out_.initial)) != no_set ||
               fail("initial: the register that is shifted in contains no set");
    }
    // Checks that the state can be reached from every state: each required set can be designated,
    // or its register never contains another one.
    bool is_reachable(const char* what, const wanted_state& state) {
        for (u32 which = 0; which < register_count; ++which) {
            const u32 set = set_in(state.value, which);
            if ((state.mask & register_mask(which)) == 0 || set == no_set ||
                designates(which, set)) {
                continue;
            }
            const bool always =
                set_in(out_.initial, which) == set &&
                std::ranges::none_of(out_.sequences(), [=](const control_sequence& s) {
                    return s.kind == sequence_kind::designation && s.which == which && s.set != set;
                });
            if (!always) {
                return fail("%s: nothing designates %s to G%u", what, out_.set(set).name, which);
            }
        }
        const bool asks_shift = (state.mask & shift_mask) != 0;
        return !asks_shift || can_shift(shifted(state.value)) ||
               fail("%s: nothing shifts to G%u", what, shifted(state.value));
    }
    [[nodiscard]] bool designates(u32 which, u32 set) const {
        return std::ranges::any_of(out_.sequences(), [=](const control_sequence& s) {
            return s.kind == sequence_kind::designation && s.which == which && s.set == set;
        });
    }
    bool sets_can_be_used() {
        for (u32 set = 1; set <= out_.set_count; ++set) {
            if (!can_hold(0, set) && !can_hold(1, set) && !can_hold(2, set) && !can_hold(3, set)) {
                return fail("%s is never designated to a register", out_.set(set).name);
            }
        }
        return true;
    }

    tag_reader tags_;
    std::span<const char* const> members_;
    iso2022& out_;
    complaint& wrong_;
    tag tag_;
    char word_[64];
};

} // namespace

bool read_iso2022(std::span<const u32> text, std::size_t from, std::span<const char* const> members,
                  iso2022& out, complaint& wrong) {
    constexpr std::string_view opening = "<iso2022";
    out = {};
    out.eight = register_count;
    const auto matches = [](char a, u32 b) { return static_cast<u8>(a) == b; };
    while (from + opening.size() <= text.size() &&
           !std::equal(opening.begin(), opening.end(),
                       text.begin() + static_cast<std::ptrdiff_t>(from), matches)) {
        ++from;
    }
    return element_reader(text, from, members, out, wrong).read();
}
