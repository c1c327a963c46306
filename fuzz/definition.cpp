// The definition reader: the input is a whole charset directory. What it describes must be read,
// converted with and released, whatever it says.
#include "cconv/definition/definition.h"
#include "fuzz/charset_files.h"

#include <algorithm>

namespace {

// Converts the text in both directions between two charsets; both may lack anything.
void convert(const char* from, const char* to, fuzz::bytes text, const target_options& target) {
    const auto s = std::make_unique<session>();
    const source_options source{
        .srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = static_cast<u32>(text.size() % 2)};
    cconvInitConvert(s.get(), &target, to);
    cconvChgCharset(s.get(), &source, from);
    const fuzz::exact_bytes in(text), out(8 * text.size() + 64, 0);
    s->inBuf = in.data();
    s->inLen = static_cast<i32>(in.size());
    s->outBuf = out.data();
    s->outLen = static_cast<i32>(out.size());
    for (std::size_t steps = 0; s->inPos < s->inLen; ++steps) {
        fuzz::expect(steps <= 4 * text.size() + 16, "does not end");
        const i32 before = s->inPos;
        const u32 status = cconvConvert(s.get());
        fuzz::expect(s->inPos >= before && s->inPos <= s->inLen && s->outPos <= s->outLen,
                     "a position outside");
        if (status == PVZAN_OUTPUT_FULL) {
            fuzz::expect(s->outPos > 0, "the documented room is not enough");
            s->outPos = 0;
        } else if (status == PVZAN_INVALID_INPUT) {
            s->inPos += s->inPos == before ? 1 : 0;
        } else if (status != PVZAN_UNREPRESENTABLE) {
            break;
        }
    }
    cconvTermConvert(s.get());
}

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    my_init();
    fuzz::use_empty_charset_directory();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most_bytes = 1 << 16;
    if (size > most_bytes) {
        return 0;
    }
    const std::vector<std::string> names = fuzz::write_files({data, size});
    u32 read = 0;
    for (const std::string& name : names) {
        if (name.ends_with(".xml")) {
            read += xmlReadXML(fuzz::scratch().file(name).c_str());
        }
    }
    target_options target{};
    target.dstBigEndian = 1;
    target.useSubstitute = static_cast<u32>(size % 2);
    target.substChar1 = target.substChar2 = 0x3042;
    const fuzz::bytes text(data, std::min<std::size_t>(size, 200));
    const items_of<charset_group> groups(g_ProcessObject.groups);
    fuzz::expect(read == 0 || !groups.empty(), "read, but not registered");
    for (const charset_group* from : groups) {
        // An array of extra tables for each set but the user-defined one.
        const int without_tables = from->memberSets->count - from->dsTableArrays->count;
        fuzz::expect(without_tables == 0 || without_tables == 1, "extra tables of no set");
        for (const charset_group* to : groups) {
            convert(from->name, to->name, text, target);
        }
    }
    fuzz::clear_registry();
    return 0;
}
