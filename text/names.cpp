// The meaning of names: first the list in names.tsv, which explains its columns, then the charset
// directory.
#include "text/names.h"

#include "cconv/convert/lifecycle.h"
#include "cconv/registry/further.h"
#include "cconv/registry/names.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/traits.h"
#include "text/directory.h"
#include "text/name_list.h"
#include "text/record.h"

namespace text {

namespace {

void copy(std::string_view from, char (&to)[64]) {
    const std::size_t size = std::min(from.size(), sizeof to - 1);
    std::copy_n(from.data(), size, to);
    to[size] = '\0';
}

// Whether the directory has the charset, without reading the definition of a further one.
bool is_defined(std::string_view charset) {
    char name[64];
    copy(charset, name);
    return settle_directory(nullptr) &&
           (std::ranges::binary_search(further_names(), charset, {},
                                       [](const char* known) { return std::string_view(known); }) ||
            registered_group(name) != nullptr);
}

// The row of a name, or of a browser's label.
const row* find_row(std::string_view name, u32 flags) {
    if ((flags & PVZAN_BROWSER_LABELS) != 0) {
        const auto* found =
            std::ranges::find_if(rows, [=](const row& r) { return is_in(r.labels, name); });
        if (found != rows.end()) {
            return found;
        }
    }
    const u32 hash = hash_of(name);
    for (const auto* at = std::ranges::lower_bound(known_names, hash, {}, &known_name::hash);
         at != known_names.end() && at->hash == hash; ++at) {
        const row& r = rows[at->row];
        if (same_name(r.shown, name) || is_in(r.names, name)) {
            return &r;
        }
    }
    return nullptr;
}

// The row of this charset whose shown name is to be used.
const row* row_of(std::string_view charset) {
    const auto* found = std::ranges::find(rows, charset, &row::id);
    return found != rows.end() ? found : nullptr;
}

// What the directory has for a charset that it may lack: the charset, or one that contains all of
// it.
const row& shipped(const row& r) {
    constexpr char whole = '=';
    for (std::string_view rest = r.relatives; rest.find(whole) != std::string_view::npos;) {
        if (is_defined(r.charset)) {
            break;
        }
        std::string_view relative = take(rest, ' ');
        if (relative.front() != whole) {
            continue;
        }
        relative.remove_prefix(1);
        if (is_defined(relative)) {
            return *row_of(relative);
        }
    }
    return r;
}

void fill_in(const row& asked, pvzan_name& meaning) {
    const row& r = shipped(asked);
    meaning.kind = r.id() == "utf-8"             ? PVZAN_KIND_UTF_8
                   : r.id() == "utf-16"          ? PVZAN_KIND_UTF_16
                   : r.id() == "iso-10646-ucs-2" ? PVZAN_KIND_UCS_2
                   : r.id() == "iso-10646-ucs-4" ? PVZAN_KIND_UCS_4
                                                 : PVZAN_KIND_OTHER;
    meaning.unit = meaning.kind == PVZAN_KIND_UCS_4                                        ? 4
                   : meaning.kind == PVZAN_KIND_UTF_16 || meaning.kind == PVZAN_KIND_UCS_2 ? 2
                                                                                           : 1;
    meaning.order = r.has("little") ? PVZAN_ORDER_LITTLE : PVZAN_ORDER_BIG;
    meaning.mark = r.has("mark") ? 2 : r.has("either") ? 1 : 0;
    meaning.exact = &r == &asked && !r.has("inexact") ? 1 : 0;
    copy(r.charset, meaning.charset);
    copy(r.shown, meaning.shown);
    copy(r.group, meaning.group);
}

// ---- Names that are like others ----------------------------------------------------------------

constexpr std::size_t longest_likened = 40;

// A name without characters that do not matter. Digits are separate, since another number is
// another charset.
struct plain_text {
    char letters[longest_likened], digits[longest_likened];
    std::size_t size = 0, digit_count = 0;

    explicit plain_text(std::string_view name) {
        const char* p = name.data();
        while (const char c = next_plain(p, name.data() + name.size())) {
            if (size == longest_likened) {
                size = 0;
                return;
            }
            letters[size++] = c;
            if (c >= '0' && c <= '9') {
                digits[digit_count++] = c;
            }
        }
    }
    [[nodiscard]] std::string_view all() const { return {letters, size}; }
    [[nodiscard]] std::string_view number() const { return {digits, digit_count}; }
};

// The number of letters to add, remove, change or swap to turn one word into the other.
u32 spelling_distance(std::string_view a, std::string_view b) {
    u32 cost[longest_likened + 1][longest_likened + 1];
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = static_cast<u32>(i + j);
                continue;
            }
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1,
                                   cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[a.size()][b.size()];
}

// The first row of each charset.
constexpr auto first_rows = [] {
    std::array<bool, rows.size()> first{};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        first[i] = !rows[i].id().empty() &&
                   std::ranges::find(rows, rows[i].id(), &row::id) == rows.begin() + i;
    }
    return first;
}();

std::string_view similar_name(std::string_view name) {
    const plain_text asked(name);
    constexpr std::size_t long_word = 6; // in shorter words two changes make a different name
    u32 least = asked.size - asked.digit_count < long_word ? 2 : 3;
    std::string_view best;
    for (const row& r : rows) {
        names_of names(r);
        for (std::string_view listed; asked.size > 0 && names.read(listed);) {
            const plain_text known(listed);
            if (known.size == 0 || (asked.digit_count > 0 && known.number() != asked.number())) {
                continue;
            }
            // A word that was added before or after a name counts little.
            const bool within =
                known.size > 3 && asked.all().find(known.all()) != std::string_view::npos;
            const u32 changes = within ? 1 : spelling_distance(asked.all(), known.all());
            if (changes < least) {
                least = changes;
                best = r.shown;
            }
        }
    }
    return best;
}

} // namespace

bool is_read_at_start(const char* charset) {
    for (const charset_group* group : items_of<charset_group>(g_ProcessObject.groups)) {
        if (std::strcmp(group->name, charset) == 0) {
            return true;
        }
    }
    return false;
}

bool relative_of(std::string_view charset, std::size_t index, char (&relative)[64]) {
    const row* const found = row_of(charset);
    std::string_view rest = found != nullptr ? found->relatives : part();
    std::string_view name = take(rest, ' ');
    for (; index > 0; --index) {
        name = take(rest, ' ');
    }
    if (name.starts_with('=')) {
        name.remove_prefix(1);
    }
    copy(name, relative);
    return !name.empty();
}

void describe_codes(const charset_group* group, pvzan_name& meaning) {
    const rule_row* decoder = group != nullptr ? TheRule(group->destRule) : nullptr;
    const codec_traits* traits =
        decoder != nullptr ? traits_of_decoder(decoder->function) : nullptr;
    if (traits == nullptr) {
        return;
    }
    bool two_bytes = !member_sets(group).empty();
    for (const basic_set* set : member_sets(group)) {
        two_bytes = two_bytes && set->byteNum == 2;
    }
    meaning.kind = PVZAN_KIND_OTHER;
    meaning.unit = 1;
    switch (traits->read) {
    case reading::utf8: meaning.kind = PVZAN_KIND_UTF_8; break;
    case reading::utf16: meaning.kind = PVZAN_KIND_UTF_16; break;
    case reading::ucs2: meaning.kind = PVZAN_KIND_UCS_2; break;
    case reading::ucs4: meaning.kind = PVZAN_KIND_UCS_4; break;
    case reading::sets: meaning.unit = two_bytes ? 2 : 1; return;
    case reading::pairs: meaning.unit = 2; return;
    case reading::lead_byte:
    case reading::escapes:
    case reading::scanned: return;
    }
    meaning.unit = meaning.kind == PVZAN_KIND_UTF_8 ? 1 : meaning.kind == PVZAN_KIND_UCS_4 ? 4 : 2;
}

bool resolve(const char* name, u32 flags, pvzan_name& meaning) {
    meaning = {};
    if (name == nullptr) {
        return false;
    }
    const std::size_t longest = sizeof meaning.charset - 1, length = ::strnlen(name, longest + 1);
    if (length > longest) {
        return false;
    }
    if (const row* found = find_row({name, length}, flags)) {
        if (found->id().empty()) {
            copy(found->shown, meaning.shown);
            return false;
        }
        fill_in(*found, meaning);
        return true;
    }
    if (settle_directory(nullptr) && find_charset(name) != nullptr) {
        meaning.order = PVZAN_ORDER_BIG;
        meaning.exact = 1;
        copy_text(meaning.charset, name);
        fold_text(meaning.charset);
        copy_text(meaning.shown, name);
        return true;
    }
    copy(similar_name({name, length}), meaning.shown);
    return false;
}

} // namespace text

using namespace text;

extern "C" {

int32_t pvzan_resolve(const char* name, uint32_t flags, pvzan_name* meaning) {
    if (!is_record(meaning)) {
        return 0;
    }
    pvzan_name found;
    const bool known = resolve(name, flags, found);
    if (known && settle_directory(nullptr)) {
        describe_codes(find_charset(found.charset), found);
    }
    fill_record(*meaning, found);
    return known ? 1 : 0;
}

int32_t pvzan_each_charset(size_t index, pvzan_name* charset) {
    if (!is_record(charset) || !settle_directory(nullptr)) {
        return 0;
    }
    pvzan_name found = {};
    const auto give = [&] {
        describe_codes(registered_group(found.charset), found);
        fill_record(*charset, found);
        return 1;
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (first_rows[i] && is_defined(rows[i].charset) && index-- == 0) {
            fill_in(rows[i], found);
            return give();
        }
    }
    const auto is_next = [&](const char* name) {
        if (row_of(name) != nullptr || index-- != 0) {
            return false;
        }
        found.order = PVZAN_ORDER_BIG;
        found.exact = found.unit = 1;
        copy_text(found.charset, name);
        copy_text(found.shown, name);
        return true;
    };
    for (const charset_group* group : items_of<charset_group>(g_ProcessObject.groups)) {
        if (is_next(group->name)) {
            return give();
        }
    }
    for (const char* name : further_names()) {
        if (!is_read_at_start(name) && is_next(name)) {
            return give();
        }
    }
    return 0;
}

int32_t pvzan_each_name(const char* charset, size_t index, char* name, size_t room) {
    if (charset == nullptr || name == nullptr) {
        return 0;
    }
    for (const row& r : rows) {
        names_of names(r);
        for (std::string_view listed; r.id() == charset && names.read(listed);) {
            if (index-- == 0) {
                if (listed.size() >= room) {
                    return 0;
                }
                std::ranges::copy(listed, name);
                name[listed.size()] = '\0';
                return 1;
            }
        }
    }
    return 0;
}

} // extern "C"
