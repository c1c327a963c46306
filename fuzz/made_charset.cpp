#include "fuzz/made_charset.h"

#include "cconv/fast/fast.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/tables/table.h"

#include <array>

namespace fuzz {

namespace {

// Few, so that what sets have overlaps: line breaks, ASCII, leads and trails of many encodings.
constexpr std::array<u8, 16> some_bytes = {0x0A, 0x0D, 0x0A, 0x0D, 0x00, 0x1B, 0x20, 0x41,
                                           0x42, 0x7E, 0x81, 0x8E, 0x8F, 0xA1, 0xB0, 0xFE};
constexpr std::array<u32, 24> some_scalars = {0x0A,   0x0D,   0x00,   0x41,   0x42,    0x5C,
                                              0x7E,   0xA5,   0xE6,   0x300,  0x301,   0x2028,
                                              0x2029, 0x304B, 0x3042, 0x309A, 0x4E00,  0x4E01,
                                              0xE000, 0xE001, 0xFEFF, 0xFFE5, 0x20089, 0xD800};

u32 random_code(sequence& choices, u16 width) {
    u32 code = 0;
    for (u16 i = 0; i < width; ++i) {
        code = code << 8 | some_bytes[choices.below(some_bytes.size())];
    }
    return code;
}

void remove(object_array* from, const void* item) {
    for (u16 i = 0; i < from->count; ++i) {
        if (from->items[i] == item) {
            delArray(from, i);
            return;
        }
    }
}

} // namespace

made_charset::made_charset(const char* name, const char* decode, const char* encode) {
    std::string own(name), decoder(decode), encoder(encode);
    group_ = initGroup(own.data(), encoder.data(), decoder.data());
    expect(group_ != nullptr && TheAddGroup(group_) != 0, "no charset");
}

made_charset::~made_charset() {
    fast::release();
    remove(g_ProcessObject.groups, group_);
    termGroup(group_);
    for (basic_set* set : sets_) {
        remove(g_ProcessObject.basics, set);
        termBasic(set);
    }
}

void made_charset::share(u32 setNo) {
    addNameArray(group_->memberSets, setNo);
    addArray(group_->dsTableArrays, initArray());
}

basic_set* made_charset::add(u16 width, u16 type) {
    std::string name = std::string(group_->name) + "-" + std::to_string(sets_.size());
    basic_set* set = initBasic(name.data(), type, width);
    expect(set != nullptr && TheAddBasic(set) != 0, "no set");
    sets_.push_back(set);
    addArray(group_->memberSets, set);
    addArray(group_->dsTableArrays, initArray());
    return set;
}

void made_charset::put(basic_set* set, u32 code, u32 scalar) {
    putTable(set->decodeTable, code, scalar);
    putTable(set->encodeTable, scalar, code);
    addArray(set->defined->ranges, initLimit(code, code));
    set->decodeTable->loaded = 1;
    set->encodeTable->loaded = 1;
}

void made_charset::put_extra(u16 position, u32 scalar, u32 code) {
    auto* tables = static_cast<object_array*>(getArray(group_->dsTableArrays, position));
    if (tables->count == 0) {
        auto* set = static_cast<basic_set*>(getArray(group_->memberSets, position));
        addArray(tables, initTable(set->byteNum, 0));
    }
    auto* table = static_cast<table_object*>(getArray(tables, 0));
    putTable(table, scalar, code);
    table->loaded = 1;
}

std::unique_ptr<made_charset> made_charset::random(const char* name, sequence& choices) {
    constexpr u32 shared[] = {PVZAN_SET_ISO_646_IRV,     PVZAN_SET_JIS_X_0201_LATIN,
                              PVZAN_SET_JIS_X_0201_KANA, PVZAN_SET_JIS_X_0208_1990,
                              PVZAN_SET_JIS_X_0213,      PVZAN_SET_JIS_X_0212_1990};
    // SAME and the two-byte rule are the ones that live by the definition.
    const auto rule = [&](u32 direction) {
        constexpr u32 table_driven = 0, two_bytes = 4;
        const u32 kind = choices.below(8);
        const u32 codec = kind < 4 ? table_driven : kind == 4 ? two_bytes : choices.below(15);
        return ruleList[2 * codec + direction].name;
    };
    const char* const decode = rule(0);
    auto made = std::make_unique<made_charset>(name, decode, rule(1));
    const u32 sets = 1 + choices.below(4);
    for (u16 i = 0; i < sets; ++i) {
        if (choices.below(4) == 0) {
            made->share(shared[choices.below(std::size(shared))]);
            continue;
        }
        const u16 width =
            static_cast<u16>(choices.below(16) == 0 ? choices.below(6) : 1 + choices.below(4));
        const bool user_defined = choices.below(8) == 0;
        basic_set* set = made->add(width, user_defined ? u16{PVZAN_SET_USER_DEFINED} : u16{1});
        set->eudcStart = static_cast<u16>(random_code(choices, 2));
        set->eudcNumber = static_cast<u16>(choices.below(300));
        const u32 codes = choices.below(8) == 0 ? 0 : 1 + choices.below(40); // 0: no table
        for (u32 n = 0; n < codes; ++n) {
            put(set, random_code(choices, width), random_scalar(choices));
        }
        for (u32 n = choices.below(4) == 0 ? choices.below(8) : 0; n > 0; --n) {
            made->put_extra(i, random_scalar(choices), random_code(choices, width));
        }
    }
    return made;
}

u32 random_scalar(sequence& choices) {
    return some_scalars[choices.below(some_scalars.size())];
}

std::string random_bytes(sequence& choices, std::size_t size) {
    std::string text;
    while (text.size() < size) {
        // The same again and again is what blocks are made for.
        const std::string some = {static_cast<char>(some_bytes[choices.below(some_bytes.size())]),
                                  static_cast<char>(some_bytes[choices.below(some_bytes.size())])};
        for (u32 times = choices.below(8) == 0 ? 1 + choices.below(100) : 1; times > 0; --times) {
            text += some.substr(choices.below(3) == 0 ? 1 : 0);
        }
    }
    return text;
}

} // namespace fuzz
