// The fast path against the rules, on shipped charsets and on charsets that nobody has, with each
// set of kernels. An input is eight bytes of choices, then the text.
#include "cconv/fast/kernels/kernels.h"
#include "fuzz/both_paths.h"
#include "fuzz/made_charset.h"

namespace {

constexpr const char* charsets[] = {
    "shift_jis",    "windows31j",       "iso-10646-ucs-2", "iso-10646-ucs-4", "utf-16",
    "utf-8",        "euc-jp",           "euc-jp-fix",      "iso-2022-jp",     "shift_jis-2004",
    "euc-jis-2004", "iso-2022-jp-2004", "chinesegbk",      "chinesebig5",     "koreanksc",
    "gb18030",      "iso-646irv",       "iso-8859-1",      "oasys-win",       "oasys-online",
};

struct conversion {
    const char *from, *to;
    pvzan_source_options source{};
    pvzan_target_options target{};
    fuzz::sequence plan; // how the caller cuts input and output
    std::string text;    // repeated, so that characters come back
};

conversion read_conversion(fuzz::input& in, std::size_t most_text) {
    constexpr std::uint16_t substitutes[] = {'?', 0x3013, 0xFF1D, 0, 0xFFFF, 0x41, 0x3042, 0x00A5};
    constexpr const char* languages[] = {"", "", "ja", "zh-tw", "x"};
    const char* const from = in.choose(charsets);
    const char* const to = in.choose(charsets);
    conversion c{from, to, {}, {}, fuzz::sequence(0), {}};
    const std::uint32_t flags = in.byte(), more = in.byte(), modes = in.byte();
    c.source = {.srcBigEndian = (flags & 1) == 0,
                .srcCheckBom = (flags & 2) != 0,
                .skipInvalid = (flags & 4) != 0};
    c.target.dstBigEndian = (flags & 8) == 0;
    c.target.dstWriteBom = (flags & 16) != 0;
    c.target.useSubstitute = (flags & 32) != 0;
    c.target.convertNewline = (flags & 64) != 0;
    c.target.substChar1 = substitutes[more % 8];
    c.target.substChar2 = substitutes[more / 8 % 8];
    std::strcpy(c.target.langTag, languages[more / 64]);
    c.target.newlineMode = modes % 7;
    c.target.charRefMode = modes / 7 % 4;
    const std::uint32_t times = 1 + in.byte() % 32;
    c.plan = fuzz::sequence(in.byte() << 8 | in.byte());
    for (std::uint32_t i = 0; i < times && c.text.size() < most_text; ++i) {
        c.text += fuzz::as_text(in.rest());
    }
    c.text.resize(std::min(c.text.size(), most_text));
    return c;
}

void choose_some_kernels(fuzz::sequence& choices) {
    fast::kernel_list list{};
    fast::list_kernels(list);
    fast::choose_kernels(
        list[choices.below(static_cast<u32>(std::ranges::find(list, nullptr) - list))]);
}

// Characters that such charsets are about, in a shipped charset's bytes.
std::string random_text(fuzz::sequence& choices, const char* charset, std::size_t characters) {
    std::string quads;
    for (std::size_t i = 0; i < characters; ++i) {
        const u32 scalar = fuzz::random_scalar(choices);
        for (int shift = 24; shift >= 0; shift -= 8) {
            quads += static_cast<char>(scalar >> shift);
        }
    }
    const auto s = std::make_unique<pvzan_session>();
    const pvzan_source_options source{.srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = 0};
    pvzan_target_options target{};
    target.dstBigEndian = 1;
    fuzz::expect(cconvInitConvert(s.get(), &target, charset) == PVZAN_DONE &&
                     cconvChgCharset(s.get(), &source, "iso-10646-ucs-4") == PVZAN_DONE,
                 "no such charset");
    std::string text(8 * quads.size(), '\0');
    s->inBuf = reinterpret_cast<const std::uint8_t*>(quads.data());
    s->inLen = static_cast<std::int32_t>(quads.size());
    s->outBuf = reinterpret_cast<std::uint8_t*>(text.data());
    s->outLen = static_cast<std::int32_t>(text.size());
    while (cconvConvert(s.get()) == PVZAN_UNREPRESENTABLE) {
    }
    text.resize(static_cast<std::size_t>(s->outPos));
    return text;
}

void convert_in_pieces(conversion& c) {
    constexpr std::uint32_t pieces[] = {4, 20, 200, 600, 2000, 4000, 9000};
    constexpr std::uint32_t rooms[] = {0, 3, 20, 100, 130, 1000, 9000, 20000};
    const std::uint32_t piece = pieces[c.plan.below(std::size(pieces))];
    const std::uint32_t room = rooms[c.plan.below(std::size(rooms))];
    const bool changes = c.plan.below(4) == 0, in_place = c.plan.below(8) == 0;
    fuzz::both_paths paths(c.from, c.to, c.source, c.target);
    const auto next_piece = [&] {
        if (changes && c.plan.below(4) == 0) {
            paths.change_source(charsets[c.plan.below(std::size(charsets))]);
        }
        return 1 + c.plan.below(piece);
    };
    const auto next_room = [&] { return c.plan.below(8) == 0 ? c.plan.below(room + 1) : room; };
    paths.pieces({reinterpret_cast<const std::uint8_t*>(c.text.data()), c.text.size()}, next_piece,
                 next_room, in_place);
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
    conversion c = read_conversion(in, most_text);
    fuzz::sequence plan = c.plan;
    convert_in_pieces(c);

    // The same between charsets that such choices make.
    const auto one = fuzz::made_charset::random("made-one", plan);
    const auto other = fuzz::made_charset::random("made-other", plan);
    const std::uint32_t ends = plan.below(4);
    c.from = ends == 0 ? c.from : one->name();
    c.to = ends == 1 ? c.to : ends == 0 ? one->name() : other->name();
    c.plan = plan;
    c.text.resize(std::min(c.text.size(), most_made_text));
    const std::size_t length = plan.below(400);
    c.text += ends == 0 ? random_text(plan, c.from, length) : fuzz::random_bytes(plan, length);
    convert_in_pieces(c);
    return 0;
}
