// The element iso2022 of a definition: designations, shifts and the sets they are of.
#pragma once

#include "cconv/registry/iso2022.h"

// What is wrong with it, as a sentence.
struct complaint {
    char text[200];
};

// Reads the element that begins in text at or behind from; members are the names of the charset's
// sets. False with a complaint where it is missing or does not hold together.
bool read_iso2022(std::span<const u32> text, std::size_t from, std::span<const char* const> members,
                  iso2022& out, complaint& wrong);
