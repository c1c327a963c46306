// Turns definition files into registry objects.
#pragma once

#include "cconv/definition/document.h"
#include "cconv/registry/linear.h"

extern "C" {
// Reads one "*.xml" file of the charset directory into the registry: 1 if its charset is registered
// afterwards, 0 on failure. Call it only while definitions are being loaded.
PVZAN_API u32 xmlReadXML(const char* fileName);
// Reads the file of the entity in an extent: 1 done, 0 failed.
PVZAN_API u32 readDAT(document* document, i32 start, i32 end, struct document* subDocument);
// Reads codes and ranges from an extent (byte offsets into text): 1 done, 0 if one could not be
// stored.
PVZAN_API u32 loadHex(const u32* text, i32 start, i32 end, limit_array* limits);
}

class known_sets;

// Whether the codes of a set are counted, which the code element in the extent says with
// linear="81-FE 30-39", one range for each byte. codes receives the ranges.
enum class counting { none, sound, faulty };
counting counted_codes(document& in, i32 start, i32 end, code_bytes& codes);

// Like xmlReadXML, for one of several definitions: set files that they share are read once.
bool read_definition(const char* fileName, known_sets& known);

// Reads the definition of a charset that is not registered, and adds it to the further ones. Null
// if the file does not exist, or defines another charset.
charset_group* read_further_definition(const char* fileName, const char* name, known_sets& known);
