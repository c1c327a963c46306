// The fast paths for long and for short texts against the rules alone: the same text, whole and in
// pieces, must leave the same bytes and the same session.
#include "cconv/registry.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/temp_dir.h"

#include <cstdlib>

namespace {

using test::to_hex;

struct settings : test::conversion {
    std::size_t capacity = 1000; // of the output
    bool rules_alone = false;
};

struct result {
    test::session_owner session;
    std::string bytes = {};
    std::vector<std::uint32_t> statuses = {}; // but "output full" and "more input"
};

// Cuts only where the rules see no difference: not between a base letter and its mark.
bool may_cut(const std::string& text, std::size_t at, const settings& how) {
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned>(static_cast<unsigned char>(text[i])) : 0U;
    };
    const auto unit = [&](std::size_t i) {
        return how.source.srcBigEndian != 0 ? byte(i) << 8 | byte(i + 1)
                                            : byte(i + 1) << 8 | byte(i);
    };
    if (std::strcmp(how.from, "utf-8") == 0) {
        // Neither ASCII nor these leads begin a mark, however damaged the text is.
        // A damaged lead would take bytes from behind the cut.
        const bool whole = byte(at - 1) < 0xC0 && byte(at - 2) < 0xE0 && byte(at - 3) < 0xF0;
        const unsigned next = byte(at);
        return at >= text.size() ||
               (whole && ((next >= 0x20 && next < 0x7F) || (next >= 0xE4 && next <= 0xE9)));
    }
    if (std::strcmp(how.from, "utf-16") == 0) {
        const unsigned next = unit(at);
        return next != 0x300 && next != 0x301 && next != 0x309A && next != 0x2E5 && next != 0x2E9;
    }
    return true;
}

// The table-driven decoders do not step over invalid input themselves.
bool stays_at_invalid(const char* charset) {
    constexpr std::string_view table_driven[] = {"iso-10646-ucs-2", "chinesegbk", "chinesebig5",
                                                 "koreanksc",       "gb18030",    "iso-8859-1",
                                                 "oasys-win",       "iso-646irv"};
    return std::ranges::find(table_driven, charset) != std::end(table_driven);
}

// Converts in pieces of at most so many bytes.
result convert(const std::string& text, const settings& how, std::size_t piece) {
    result r{test::open_session(how)};
    pvzan_session& s = *r.session;
    // What is not in the registry is the rules' alone.
    charset_group* const registered = s.srcGroup;
    const auto copy = std::make_unique<charset_group>(*registered);
    if (how.rules_alone) {
        s.srcGroup = copy.get();
    }
    const test::guarded_buffer out(how.capacity);
    test::give_input(s, text);
    test::give_output(s, {out.data(), out.size()});
    std::size_t end = 0, steps = 0;
    while (++steps < 20 * text.size() + 100) {
        if (end < text.size() && static_cast<std::size_t>(s.inPos) >= end) {
            end = static_cast<std::size_t>(s.inPos);
        }
        s.inLen = static_cast<std::int32_t>(end);
        const std::uint32_t status = cconvConvert(&s);
        if (status == PVZAN_OUTPUT_FULL) {
            r.bytes += test::written(s);
            s.outPos = 0;
            continue;
        }
        if (status == PVZAN_DONE || status == PVZAN_INPUT_INCOMPLETE) {
            if (end == text.size()) {
                break;
            }
            end = std::min(text.size(), end + piece);
            while (end < text.size() && !may_cut(text, end, how)) {
                end += std::strcmp(how.from, "utf-16") == 0 ? 2 : 1;
            }
            end = std::min(end, text.size());
            continue;
        }
        if (status == PVZAN_INVALID_INPUT && stays_at_invalid(how.from)) {
            ++s.inPos;
        }
        r.statuses.push_back(status);
        r.statuses.push_back(static_cast<std::uint32_t>(s.inPos));
    }
    r.bytes += test::written(s);
    // What legitimately differs: where buffers stand.
    s.srcGroup = registered;
    s.inBuf = nullptr;
    s.outBuf = nullptr;
    s.outPos = 0;
    return r;
}

void expect_same(const std::string& text, const settings& how, std::size_t piece,
                 const result& slow, const std::string& what) {
    const result fast = convert(text, how, piece);
    ASSERT_EQ(to_hex(fast.bytes), to_hex(slow.bytes)) << what;
    ASSERT_EQ(fast.statuses, slow.statuses) << what;
    ASSERT_EQ(std::memcmp(fast.session.get(), slow.session.get(), sizeof(pvzan_session)), 0)
        << what << ": the sessions differ: inCount " << fast.session->inCount << " "
        << slow.session->inCount << ", srcCode " << fast.session->srcCode << " "
        << slow.session->srcCode << ", outSetNo " << fast.session->outSetNo << " "
        << slow.session->outSetNo;
}

void expect_same(const std::string& text, const settings& how, std::size_t piece,
                 const std::string& what) {
    settings alone = how;
    alone.rules_alone = true;
    const result slow = convert(text, alone, 40);
    expect_same(text, how, text.size(), slow, what + ", whole");
    for (const char* pass : {", first", ", again"}) { // then all that can be is known
        expect_same(text, how, piece, slow, what + pass + " in pieces of " + std::to_string(piece));
    }
}

// Every pair of charsets in every byte order in turn, the rest at random.
constexpr unsigned charset_count = std::size(test::all_charsets);
constexpr unsigned all_pairs = charset_count * charset_count * 2;
settings settings_of(unsigned seed, std::mt19937& random) {
    settings how{{.from = test::all_charsets[seed % charset_count],
                  .to = test::all_charsets[seed / charset_count % charset_count]}};
    how.source.srcBigEndian = seed / (charset_count * charset_count) % 2;
    how.source.skipInvalid = random() % 4 == 0;
    how.target.dstBigEndian = random() % 4 != 0;
    how.target.useSubstitute = random() % 3 == 0;
    how.target.substChar1 = '?';
    how.target.substChar2 = 0x3013;
    how.target.convertNewline = random() % 2;
    how.target.newlineMode = static_cast<std::uint32_t>(random() % 7);
    how.target.charRefMode = random() % 8 == 0;
    constexpr std::size_t capacities[] = {96, 130, 1000, 65536};
    how.capacity = capacities[random() % std::size(capacities)];
    return how;
}

// A substitute is the session's own affair, and behind a user-defined character the number of the
// set before it stays: what one session learnt of either must not reach another.
// Before the other cases, which settle the charset directory of the process.
TEST(Bulk, RemembersNothingOfTheSession) {
    const test::temp_dir directory;
    const std::string charsets =
        directory.file("charsets"); // with one that has a user-defined area
    const std::string install =
        PVZAN_SOURCE_DIR "/examples/own_charset/install " PVZAN_BASE2_DIR " ";
    ASSERT_EQ(std::system((install + charsets).c_str()), 0);
    test::in_child([&] {
        ASSERT_EQ(ZAN_setCharsetPath(charsets.c_str()), 1U);
        for (const std::uint32_t substitute : {1U, 0U}) {
            for (const char* text : {"é", "A\uE000", "☃\uE000", "A\uE000"}) {
                settings how{{.from = "utf-8", .to = "acme"}};
                how.target.useSubstitute = substitute;
                expect_same(text, how, 8, text);
            }
        }
    });
}

TEST(Bulk, LeavesWhatTheRulesLeave) {
    for (unsigned seed = 0; seed < all_pairs; ++seed) {
        std::mt19937 random(seed);
        const settings how = settings_of(seed, random);
        if (std::strcmp(how.from, "iso-2022-jp-2004") == 0) {
            continue; // where this charset is cut matters to the rules themselves
        }
        test::conversion encode{.from = "utf-8", .to = how.from};
        encode.input = test::utf8(test::random_text(random, 200 + random() % 3000, 24));
        encode.target.dstBigEndian = how.source.srcBigEndian;
        std::string text = test::run(encode, {encode.input}, 65536).bytes;
        // Anomalies: none, few, many.
        const auto damage = random() % 3;
        for (int n = damage == 0 ? 0 : damage == 1 ? 3 : 200; n > 0 && !text.empty(); --n) {
            text[random() % text.size()] = static_cast<char>(random());
        }
        const bool wide =
            std::strstr("utf-16 iso-10646-ucs-2 iso-10646-ucs-4", how.from) != nullptr;
        expect_same(text, how, wide ? 4 + random() % 15 * 4 : 1 + random() % 60,
                    "seed " + std::to_string(seed) + ", " + how.from + " to " + how.to);
        if (HasFatalFailure()) {
            return;
        }
    }
}

// A known letter whose mark is the last whole character before a cut one.
TEST(Bulk, EndsShortTextsAnywhere) {
    const std::string letters = test::utf8(U"か\u00E6あか\u309A\u00E6\u0300か\u309Aあ\U00020089い");
    for (const char* from : {"utf-8", "utf-16"}) {
        const std::string text = test::convert("utf-8", from, letters);
        for (const char* to : {"utf-16", "iso-10646-ucs-2", "shift_jis-2004", "shift_jis"}) {
            const settings how{{.from = from, .to = to}};
            for (std::size_t size = 1; size <= text.size(); ++size) {
                const std::string part = text.substr(0, size);
                ASSERT_NO_FATAL_FAILURE(expect_same(part, how, size, from + (", " + part)));
                ASSERT_NO_FATAL_FAILURE(expect_same(part + "\xE9", how, size + 1, part));
            }
        }
    }
}

} // namespace
