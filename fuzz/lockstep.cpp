// The fast path against the rules, on shipped charsets and on charsets that nobody has, with each
// set of kernels. An input is eight bytes of choices, then the text.
#include "cconv/fast/kernels/kernels.h"
#include "fuzz/both_paths.h"
#include "fuzz/made_charset.h"

namespace {

constexpr const char* charsets[] = {"shift_jis",       "windows31j",    "iso-10646-ucs-2",
                                    "iso-10646-ucs-4", "utf-16",        "utf-8",
                                    "euc-jp",          "euc-jp-fix",    "iso-2022-jp",
                                    "shift_jis-2004",  "euc-jis-2004",  "iso-2022-jp-2004",
                                    "chinesegbk",      "chinesebig5",   "koreanksc",
                                    "gb18030",         "iso-646irv",    "iso-8859-1",
                                    "koi8-r",          "windows-1252",  "ibm037",
                                    "oasys-win",       "oasys-online",  "iso-2022-jp-1",
                                    "iso-2022-jp-2",   "iso-2022-jp-3", "cp50220",
                                    "cp50221",         "cp50222",       "iso-2022-jp-ms",
                                    "iso-2022-kr",     "iso-2022-cn",   "hz",
                                    "ibm939",          "ibm1390",       "big5-hkscs",
                                    "eucjp-ms",        "utf-7",         "cesu-8",
                                    "utf-8-mac"};

struct conversion {
    const char *from, *to;
    pvzan_source_options source;
    pvzan_target_options target;
    std::string text;
};

constexpr std::uint32_t is_utf8 = 128; // the text, and is to be taken into the source's charset

void set_options(conversion& c, std::uint32_t flags, std::uint32_t more, std::uint32_t modes) {
    constexpr std::uint16_t substitutes[] = {'?', 0x3013, 0xFF1D, 0, 0xFFFF, 0x41, 0x3042, 0x00A5};
    constexpr const char* languages[] = {"", "", "ja", "zh-tw", "x"};
    c.source = {.srcBigEndian = (flags & 1) == 0,
                .srcCheckBom = (flags & 2) != 0,
                .skipInvalid = (flags & 4) != 0};
    c.target = {};
    c.target.dstBigEndian = (flags & 8) == 0;
    c.target.dstWriteBom = (flags & 16) != 0;
    c.target.useSubstitute = (flags & 32) != 0;
    c.target.convertNewline = (flags & 64) != 0;
    c.target.substChar1 = substitutes[more % 8];
    c.target.substChar2 = substitutes[more / 8 % 8];
    std::strcpy(c.target.langTag, languages[more / 64]);
    c.target.newlineMode = modes % 7;
    c.target.charRefMode = modes / 7 % 4;
}

void choose_some_kernels(fuzz::sequence& choices) {
    fast::kernel_list list{};
    fast::list_kernels(list);
    fast::choose_kernels(
        list[choices.below(static_cast<u32>(std::ranges::find(list, nullptr) - list))]);
}

// The text in another charset, without what that lacks.
std::string in_charset(const char* from, const std::string& text, const char* to, bool big_endian) {
    const auto s = std::make_unique<pvzan_session>();
    const pvzan_source_options source{.srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = 1};
    pvzan_target_options target{};
    target.dstBigEndian = big_endian ? 1 : 0;
    fuzz::expect(cconvInitConvert(s.get(), &target, to) == PVZAN_DONE &&
                     cconvChgCharset(s.get(), &source, from) == PVZAN_DONE,
                 "no such charset");
    std::string made(8 * text.size() + 64, '\0');
    s->inBuf = reinterpret_cast<const std::uint8_t*>(text.data());
    s->inLen = static_cast<std::int32_t>(text.size());
    s->outBuf = reinterpret_cast<std::uint8_t*>(made.data());
    s->outLen = static_cast<std::int32_t>(made.size());
    while (cconvConvert(s.get()) == PVZAN_UNREPRESENTABLE) {
    }
    made.resize(static_cast<std::size_t>(s->outPos));
    return made;
}

// Characters that made charsets are about, as UCS-4.
std::string random_quads(fuzz::sequence& choices, std::size_t characters) {
    std::string quads;
    for (std::size_t i = 0; i < characters; ++i) {
        const u32 scalar = fuzz::random_scalar(choices);
        for (int shift = 24; shift >= 0; shift -= 8) {
            quads += static_cast<char>(scalar >> shift);
        }
    }
    return quads;
}

// In calls of any size; now and then in one, and into exactly the room that this took.
void convert(const conversion& c, fuzz::sequence& plan) {
    constexpr std::uint32_t pieces[] = {4, 20, 200, 600, 2000, 4000, 9000};
    constexpr std::uint32_t rooms[] = {0, 3, 20, 100, 130, 1000, 9000, 20000};
    const fuzz::bytes text(reinterpret_cast<const std::uint8_t*>(c.text.data()), c.text.size());
    fuzz::both_paths paths(c.from, c.to, c.source, c.target);
    if (plan.below(3) == 0) {
        paths.convert(text, 8 * text.size() + 100);
        const auto room = static_cast<std::size_t>(paths.session().outPos);
        fuzz::both_paths(c.from, c.to, c.source, c.target)
            .convert(text, room - std::min<std::size_t>(room, plan.below(2)));
        return;
    }
    const std::uint32_t piece = pieces[plan.below(std::size(pieces))];
    const std::uint32_t room = rooms[plan.below(std::size(rooms))];
    const bool changes = plan.below(4) == 0, in_place = plan.below(8) == 0;
    const auto next_piece = [&] {
        if (changes && plan.below(4) == 0) {
            paths.change_source(charsets[plan.below(std::size(charsets))]);
        }
        return 1 + plan.below(piece);
    };
    const auto next_room = [&] { return plan.below(8) == 0 ? plan.below(room + 1) : room; };
    paths.pieces(text, next_piece, next_room, in_place);
}

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    my_init();
    ZAN_setCharsetPath(PVZAN_BASE2_DIR);
    fuzz::expect(cconvLoadRule() == 1, "no charsets");
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most_text = 6000, most_made_text = 1000;
    // Answers and kernels are kept for some inputs: asking takes longer than using them.
    static std::uint32_t inputs;
    fuzz::sequence kernels(inputs / 64);
    if (inputs++ % 64 == 0) {
        fast::release();
        choose_some_kernels(kernels);
    }
    fuzz::input in({data, size});
    conversion c{in.choose(charsets), in.choose(charsets), {}, {}, {}};
    const std::uint32_t flags = in.byte(), more = in.byte(), modes = in.byte();
    set_options(c, flags, more, modes);
    const std::uint32_t times = 1 + in.byte() % 32; // so that characters come back
    fuzz::sequence plan(in.byte() << 8 | in.byte());
    for (std::uint32_t i = 0; i < times && c.text.size() < most_text; ++i) {
        c.text += fuzz::as_text(in.rest());
    }
    c.text.resize(std::min(c.text.size(), most_text));
    if ((flags & is_utf8) != 0) {
        c.text = in_charset("utf-8", c.text, c.from, c.source.srcBigEndian != 0);
    }
    for (u32 n = c.text.empty() ? 0 : std::array{0U, 0U, 3U, 200U}[plan.below(4)]; n > 0; --n) {
        char& damaged = c.text[plan.below(static_cast<u32>(c.text.size()))];
        damaged = static_cast<char>(u32{static_cast<u8>(damaged)} ^
                                    (plan.below(2) == 0 ? 0x80 : plan.below(0x100)));
    }
    convert(c, plan);
    // Answers given under other options are no answers.
    set_options(c, plan.below(0x100), plan.below(0x100), plan.below(0x100));
    convert(c, plan);

    // The same between charsets that such choices make.
    const auto one = fuzz::made_charset::random("made-one", plan);
    const auto other = fuzz::made_charset::random("made-other", plan);
    const std::uint32_t ends = plan.below(4);
    c.from = ends == 0 ? c.from : one->name();
    c.to = ends == 1 ? c.to : ends == 0 ? one->name() : other->name();
    c.text.resize(std::min(c.text.size(), most_made_text));
    const std::size_t length = plan.below(400);
    c.text += ends == 0 ? in_charset("iso-10646-ucs-4", random_quads(plan, length), c.from, true)
                        : fuzz::random_bytes(plan, length);
    convert(c, plan);
    return 0;
}
