// Reads a definition document strictly. The library finds elements, attributes and entities by
// text search; a document that passes here means the same to it.
#pragma once

#include "charsets/builder/source.h"

namespace charsets {

struct attribute {
    std::string name, value;
};

struct element {
    std::size_t line = 0;
    std::string name;
    std::vector<attribute> attributes;
    std::string text; // its own text, without that of its children
    std::vector<element> children;
    std::vector<std::string> references; // entities that its own text refers to

    const attribute* find_attribute(std::string_view wanted) const;
};

struct entity {
    std::size_t line;
    std::string name, file;
};

struct markup {
    source_file source;
    std::vector<entity> entities;
    std::vector<element> elements; // top level

    const entity* find_entity(std::string_view name) const;
};

// The first line of a source document; in the charset directory it names UTF-16 instead.
inline constexpr std::string_view source_declaration = R"(<?xml version="1.0" encoding="UTF-8"?>)";
inline constexpr std::string_view built_declaration = R"(<?xml version="1.0" encoding="UTF-16"?>)";

markup read_markup(source_file source);

} // namespace charsets
