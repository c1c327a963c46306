// The definition reader: the input is a whole charset directory. What it describes must be read,
// converted with and released, whatever it says.
#include "cconv/definition/definition.h"
#include "fuzz/both_paths.h"
#include "fuzz/charset_files.h"

#include <algorithm>

namespace {

// Converts the text between two charsets; both may lack anything.
void convert(const char* from, const char* to, fuzz::bytes text, const target_options& target) {
    const source_options source{
        .srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = static_cast<u32>(text.size() % 2)};
    const auto s = std::make_unique<session>();
    if (cconvInitConvert(s.get(), &target, to) == PVZAN_DONE &&
        cconvChgCharset(s.get(), &source, from) == PVZAN_DONE) {
        fuzz::both_paths(from, to, source, target).convert(text, 8 * text.size() + 64);
    }
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
