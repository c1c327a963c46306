// Finds and undoes misreadings: text that was read with a wrong charset and then saved as UTF-8.
//
// The way back writes a line in the charset that it was read with, and reads these bytes in the
// charset that they were in. It is taken only if both steps are exact, and if the result looks far
// more like writing than the line does.
#include "platform/platform.h"
#include "text/directory.h"
#include "text/guess/candidates.h"
#include "text/guess/score.h"
#include "text/names.h"
#include "text/record.h"
#include "text/unicode.h"

#include <algorithm>
#include <cstdio>
#include <strings.h>

namespace text {

namespace {

struct misreading {
    const char *was, *read_as;
};

// If several lead to the same text, the first one is reported.
constexpr misreading misreadings[] = {
    {"utf-8", "windows-1252"},
    {"utf-8", "iso-8859-1"},
    {"utf-8", "windows-31j"},
    {"utf-8", "gbk"},
    {"utf-8", "cp437"},
    {"utf-8", "cp850"},
    {"utf-8", "macintosh"},
    {"utf-8", "windows-1250"},
    {"utf-8", "windows-1251"},
    {"utf-8", "windows-1254"},
    {"utf-8", "koi8-r"},
    {"windows-31j", "windows-1252"},
    {"windows-31j", "iso-8859-1"},
    {"windows-31j", "cp437"},
    {"windows-31j", "cp850"},
    {"windows-31j", "macintosh"},
    {"euc-jp", "windows-1252"},
    {"euc-jp", "iso-8859-1"},
};
constexpr std::size_t misreading_count = sizeof misreadings / sizeof *misreadings;
constexpr std::size_t utf8_count = 11; // number of those at the beginning
constexpr u32 most_steps = 3;
constexpr std::size_t growth = 3; // a byte becomes a character of at most three bytes

constexpr std::size_t longest_line = std::size_t{1} << 16; // longer lines are left alone

constexpr char32_t hole = 0xFFFD;

bool is_ascii(std::span<const u8> text) {
    return std::ranges::all_of(text, [](u8 byte) { return byte < 0x80; });
}

// Takes a line off, with its line feed.
std::span<const u8> take_line(std::span<const u8>& text) {
    const auto feed = std::ranges::find(text, u8{'\n'});
    const auto size = static_cast<std::size_t>(feed - text.begin()) + (feed != text.end() ? 1 : 0);
    const std::span<const u8> line = text.first(size);
    text = text.subspan(size);
    return line;
}

class way_back {
public:
    way_back() = default;
    ~way_back() {
        pvzan_close(writes_);
        pvzan_close(reads_);
    }
    way_back(const way_back&) = delete;
    way_back& operator=(const way_back&) = delete;

    // False where the charset directory lacks one of the charsets.
    bool open(const char* was, const char* read_as) {
        pvzan_open_options how = {};
        how.size = sizeof how;
        how.flags = PVZAN_READ_BACK | PVZAN_OFFSETS_ALONE;
        how.mark = PVZAN_MARK_STRIP;
        char name[64];
        copy_text(name, read_as);
        fold_text(name);
        charset_row row;
        std::string_view list = charset_list;
        while (take_row(list, row) && row.name != name) {
        }
        single_ = row.codes == structure::single_byte && !row.name.empty();
        if (single_) {
            read_high(row, high_);
        } else {
            writes_ = pvzan_open("utf-8", read_as, &how, nullptr);
        }
        utf8_ = ::strcasecmp(was, "utf-8") == 0;
        reads_ = utf8_ ? nullptr : pvzan_open(was, "utf-8", &how, nullptr);
        return (single_ || writes_ != nullptr) && (utf8_ || reads_ != nullptr);
    }

    // The size of what comes out; 0: the way is not exact. bytes has room for the line, to for
    // three times as much. A katakana middle dot is what Windows puts in the place of bytes that
    // are no code, so that nobody knows them.
    std::size_t go(std::span<const u8> line, u8* bytes, u8* to) {
        constexpr u8 middle_dot[] = {0xE3, 0x83, 0xBB};
        if (!single_ && std::search(line.begin(), line.end(), std::begin(middle_dot),
                                    std::end(middle_dot)) != line.end()) {
            return 0;
        }
        const std::size_t size =
            single_ ? write_single_bytes(line, bytes) : convert(writes_, line, bytes, line.size());
        if (size == 0) {
            return 0;
        }
        if (!utf8_) {
            return convert(reads_, {bytes, size}, to, size * growth);
        }
        std::memcpy(to, bytes, size);
        return is_utf8({bytes, size}) ? size : 0;
    }

    [[nodiscard]] bool is_single() const { return single_; }

private:
    static bool is_utf8(std::span<const u8> text) {
        while (!text.empty()) {
            const sequence s = read_utf8(text.data(), text.size());
            if (s.kind != sequence::whole) {
                return false;
            }
            text = text.subspan(s.bytes);
        }
        return true;
    }

    static std::size_t convert(pvzan_converter* c, std::span<const u8> from, u8* to,
                               std::size_t room) {
        pvzan_outcome said = PVZAN_FEED_DONE;
        const std::size_t size = pvzan_convert(c, from.data(), from.size(), to, room, &said);
        return said == PVZAN_FEED_DONE ? size : 0;
    }

    // Where the charset has nothing, browsers and others have read the byte as a control code.
    std::size_t write_single_bytes(std::span<const u8> line, u8* to) const {
        u8* end = to;
        while (!line.empty()) {
            const sequence s = read_utf8(line.data(), line.size());
            if (s.kind != sequence::whole) {
                return 0;
            }
            line = line.subspan(s.bytes);
            const auto found = std::ranges::find(high_, static_cast<char16_t>(s.scalar));
            const bool fills_hole =
                s.scalar >= 0x80 && s.scalar < 0xA0 && high_[s.scalar - 0x80] == hole;
            if (s.scalar < 0x80 || fills_hole) {
                *end++ = static_cast<u8>(s.scalar);
            } else if (s.scalar < hole && found != std::end(high_)) {
                *end++ = static_cast<u8>(0x80 + (found - std::begin(high_)));
            } else {
                return 0;
            }
        }
        return static_cast<std::size_t>(end - to);
    }

    char16_t high_[128] = {};
    bool single_ = false, utf8_ = false;
    pvzan_converter *writes_ = nullptr, *reads_ = nullptr;
};

constexpr std::size_t sample_room = 4096;

// Lines that have a way back, as they are, and as they come out.
struct sample {
    u8 before[sample_room], after[sample_room];
    std::size_t before_size, after_size;
    i32 gain;

    void add(std::span<const u8> line, std::span<const u8> repaired) {
        if (before_size + line.size() <= sample_room &&
            after_size + repaired.size() <= sample_room) {
            std::ranges::copy(line, before + before_size);
            std::ranges::copy(repaired, after + after_size);
            before_size += line.size();
            after_size += repaired.size();
        }
    }
};

struct writing {
    i32 cost = 0;
    u32 beyond = 0, kana = 0;
    bool half_width = false;
};

struct finder {
    scorer judge;
    sample samples[misreading_count];
    seen characters[sample_room];
    u8 bytes[longest_line], out[longest_line * growth];
    u8 text[sample_room]; // what a step has made of the sample

    writing look_at(std::span<const u8> from) {
        writing found;
        std::size_t count = 0;
        while (!from.empty()) {
            const sequence s = read_utf8(from.data(), from.size());
            if (s.scalar != 0xFEFF) {
                const seen one = characters[count++] = see(s.scalar);
                found.beyond += s.scalar >= 0x80 ? 1 : 0;
                found.kana += one.what == kind::hiragana || one.what == kind::katakana ? 1 : 0;
                found.half_width = found.half_width || one.what == kind::half_katakana;
            }
            from = from.subspan(std::max(s.bytes, 1U));
        }
        found.cost = static_cast<i32>(judge.judge({characters, count}, "*", 0, any_cost));
        return found;
    }

    void try_one(std::size_t which, std::span<const u8> whole) {
        sample& s = samples[which];
        s.before_size = s.after_size = 0;
        s.gain = 0;
        std::size_t lines = 0, exact = 0;
        way_back way;
        if (!way.open(misreadings[which].was, misreadings[which].read_as)) {
            return;
        }
        while (!whole.empty()) {
            const std::span<const u8> line = take_line(whole);
            if (is_ascii(line) || line.size() > longest_line) {
                continue;
            }
            ++lines;
            if (const std::size_t size = way.go(line, bytes, out); size > 0) {
                s.add(line, {out, size});
                ++exact;
            }
        }
        if (s.after_size == 0) {
            return;
        }
        const writing before = look_at({s.before, s.before_size});
        const writing after = look_at({s.after, s.after_size});
        s.gain = before.cost - after.cost;
        // Bytes are seldom well-formed UTF-8 by chance; codes of other charsets they are often. A
        // text may quote what it tells about, and be plausible else. Charsets of several bytes have
        // lost part of most lines, but not of nearly all.
        constexpr i32 least_for_one = 4 * bit;
        constexpr u32 some_kana = 3;
        const bool utf8 = which < utf8_count;
        const bool plausible = utf8 || (after.kana >= some_kana && !after.half_width);
        const i32 least =
            utf8 && way.is_single() ? 0 : least_for_one * static_cast<i32>(before.beyond);
        const std::size_t share = !way.is_single() ? 8 : utf8 ? 3 : 2;
        if (s.gain < least || !plausible || exact * share < lines) {
            s.gain = 0;
        }
    }

    // The misreading that explains the text best of some, and by far; misreading_count: none does.
    std::size_t find(std::span<const u8> whole, std::size_t first, std::size_t end, i32 least) {
        constexpr i32 clear_lead = 10 * bit;
        std::size_t best = misreading_count;
        for (std::size_t i = first; i < end; ++i) {
            try_one(i, whole);
            if (samples[i].gain >= (best < end ? samples[best].gain + 1 : least)) {
                best = i;
            }
        }
        for (std::size_t i = first; i < end && best < end; ++i) {
            const sample &a = samples[i], &b = samples[best];
            const bool same = std::ranges::equal(std::span(a.after, a.after_size),
                                                 std::span(b.after, b.after_size));
            if (!same && a.gain > b.gain - clear_lead) {
                return misreading_count;
            }
        }
        return best;
    }

    // What is well-formed UTF-8 by chance is rare, so that this is looked for first.
    std::size_t find(std::span<const u8> whole, i32 least) {
        const std::size_t found = find(whole, 0, utf8_count, least);
        return found < misreading_count ? found : find(whole, utf8_count, misreading_count, least);
    }
};

// Has the line go all the ways; false: one is not exact, and the line stays.
bool undo(std::span<way_back> ways, std::span<const u8>& line, u8* memory) {
    if (is_ascii(line)) {
        return false;
    }
    u8 *const in = memory, *const written = in + longest_line, *const out = written + longest_line;
    std::span<const u8> now = line;
    for (way_back& way : ways) {
        const std::size_t size = now.size() <= longest_line ? way.go(now, written, out) : 0;
        if (size == 0 || size > longest_line) {
            return false;
        }
        std::memcpy(in, out, size);
        now = {in, size};
    }
    line = now;
    return !ways.empty();
}

void tell_words(pvzan_misreading& m) {
    static const char* const times[] = {"", "", ", twice", ", three times"};
    bool same = true;
    for (u32 i = 1; i < m.steps; ++i) {
        same = same && std::strcmp(m.was[i], m.was[0]) == 0 &&
               std::strcmp(m.read_as[i], m.read_as[0]) == 0;
    }
    const u32 parts = same ? std::min(m.steps, 1U) : m.steps;
    std::size_t size = 0;
    m.words[0] = '\0';
    for (u32 i = parts; i-- > 0;) {
        const int more = std::snprintf(m.words + size, sizeof m.words - size, "%s%s read as %s%s",
                                       size > 0 ? ", that " : "", m.was[i], m.read_as[i],
                                       same ? times[m.steps] : "");
        size = std::min(size + static_cast<std::size_t>(more), sizeof m.words - 1);
    }
}

void add_step(pvzan_misreading& m, const misreading& step) {
    pvzan_name name;
    resolve(step.was, 0, name);
    copy_text(m.was[m.steps], name.shown);
    resolve(step.read_as, 0, name);
    copy_text(m.read_as[m.steps], name.shown);
    ++m.steps;
}

} // namespace

} // namespace text

using namespace text;

extern "C" {

int32_t pvzan_find_misreading(const uint8_t* bytes, size_t size, pvzan_misreading* found) {
    if (bytes == nullptr || !is_record(found) || is_ascii({bytes, size}) ||
        !settle_directory(nullptr)) {
        return 0;
    }
    void* memory = ZAN_malloc(static_cast<i32>(sizeof(finder)));
    if (memory == nullptr) {
        return 0;
    }
    auto* f = ::new (memory) finder;
    pvzan_misreading told = {};
    std::span<const u8> whole(bytes, size);
    while (told.steps < most_steps) {
        constexpr i32 least_gain = 15 * bit, less_gain = 5 * bit; // of one more
        const std::size_t step = f->find(whole, told.steps == 0 ? least_gain : less_gain);
        if (step == misreading_count) {
            break;
        }
        add_step(told, misreadings[step]);
        const sample& s = f->samples[step];
        std::memcpy(f->text, s.after, s.after_size);
        whole = {f->text, s.after_size};
    }
    f->~finder();
    ZAN_free(memory);
    tell_words(told);
    fill_record(*found, told);
    return told.steps > 0 ? 1 : 0;
}

size_t pvzan_undo_misreading(const pvzan_misreading* misreading, const uint8_t* bytes, size_t size,
                             uint8_t* to, size_t room, uint64_t* undone) {
    pvzan_misreading m;
    way_back ways[most_steps];
    constexpr std::size_t rooms = 2 + growth; // for a line, what is written of it, and what is read
    auto* memory = static_cast<u8*>(ZAN_malloc(static_cast<i32>(longest_line * rooms)));
    bool open = memory != nullptr && bytes != nullptr && read_record(misreading, m) &&
                m.steps <= most_steps;
    for (u32 i = 0; open && i < m.steps; ++i) {
        open = ways[i].open(m.was[i], m.read_as[i]);
    }
    std::size_t end = 0;
    u64 count = 0;
    for (std::span<const u8> rest(bytes, size); open && !rest.empty();) {
        std::span<const u8> line = take_line(rest);
        const bool repaired = undo({ways, m.steps}, line, memory);
        if (end + line.size() <= room) {
            std::ranges::copy(line, to + end);
        }
        end += line.size();
        count += repaired ? 1 : 0;
    }
    ZAN_free(memory);
    if (undone != nullptr) {
        *undone = count;
    }
    return end;
}

} // extern "C"
