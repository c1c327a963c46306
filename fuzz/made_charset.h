// Charsets that no directory has, made of random sets, in the registry for as long as they live:
// sets of any width in any order, with and without tables, shared with shipped charsets,
// user-defined ones, extra tables.
#pragma once

#include "cconv/registry/registry.h"
#include "fuzz/support.h"

#include <vector>

namespace fuzz {

class made_charset {
public:
    // decode and encode: names of rules.
    made_charset(const char* name, const char* decode, const char* encode);
    ~made_charset();
    made_charset(const made_charset&) = delete;
    made_charset& operator=(const made_charset&) = delete;

    // A set that is in the registry already; one of its own, with so many bytes a code.
    void share(u32 setNo);
    basic_set* add(u16 width, u16 type = PVZAN_SET_BASE);
    // The set has the code; so far nothing but codes that were put in.
    static void put(basic_set* set, u32 code, u32 scalar);
    // Written for the scalar where the set has no code for it.
    void put_extra(u16 position, u32 scalar, u32 code);

    [[nodiscard]] const char* name() const { return group_->name; }

    // Some of everything.
    static std::unique_ptr<made_charset> random(const char* name, sequence& choices);

private:
    charset_group* group_;
    std::vector<basic_set*> sets_;
};

// Text that such charsets may read: their bytes, or any charset's characters.
std::string random_bytes(sequence& choices, std::size_t size);
// One of the scalars that they are about.
u32 random_scalar(sequence& choices);

} // namespace fuzz
