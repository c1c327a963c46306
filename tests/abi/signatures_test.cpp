// The types of all exported names are those released: tests/data/signatures.tsv.
#include "cconv/convert/lifecycle.h"
#include "cconv/definition/definition.h"
#include "cconv/definition/document.h"
#include "cconv/detect/detect.h"
#include "cconv/directory/directory.h"
#include "cconv/engine/engine.h"
#include "cconv/registry/names.h"
#include "cconv/registry/registry.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"
#include "tests/support/test.h"

#include <cxxabi.h>
#include <typeinfo>

namespace {

std::string name_of(const std::type_info& type) {
    const std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr), std::free);
    return name.get();
}

TEST(Interface, Signatures) {
    std::string types;
#define ROW(name) types += #name "\t" + name_of(typeid(decltype(name))) + "\n";
#include "exported_names.inc"
    std::ifstream file(PVZAN_SOURCE_DIR "/tests/data/signatures.tsv");
    const std::string released{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(types, released);
}

} // namespace
