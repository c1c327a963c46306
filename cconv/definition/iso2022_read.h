// Reads the element iso2022 of a definition: designations, shifts and their sets.
#pragma once

#include "cconv/registry/iso2022.h"

// What is wrong with the element, in words.
struct complaint {
    char text[200];
};

// Reads the first such element in text at or after from. members are the names of the charset's
// sets. False, with a complaint, if the element is missing or inconsistent.
bool read_iso2022(std::span<const u32> text, std::size_t from, std::span<const char* const> members,
                  iso2022& out, complaint& wrong);
