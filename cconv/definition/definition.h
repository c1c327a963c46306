// Turns definition files into registry objects.
#pragma once

#include "cconv/definition/document.h"
#include "cconv/registry/linear.h"

extern "C" {
// Takes one "*.xml" file of the charset directory into the registry: 1 when its charset is
// registered afterwards, 0 on failure. Only while definitions are being loaded.
PVZAN_API u32 xmlReadXML(const char* fileName);
// Reads the file that the entity in an extent stands for: 1 done, 0 failed.
PVZAN_API u32 readDAT(document* document, i32 start, i32 end, struct document* subDocument);
// Codes and ranges of an extent (byte offsets into text): 1 done, 0 when one could not be stored.
PVZAN_API u32 loadHex(const u32* text, i32 start, i32 end, limit_array* limits);
}

class known_sets;

// Whether the codes of a set are counted, as the extent of its code element says with
// linear="81-FE 30-39", a range for each byte; and their bytes, which codes receives.
enum class counting { none, sound, faulty };
counting counted_codes(document& in, i32 start, i32 end, code_bytes& codes);

// xmlReadXML for one definition of several: set files that they share are read once.
bool read_definition(const char* fileName, known_sets& known);

// Whether the rule of that name goes by the element iso2022.
bool goes_by_iso2022(const char* rule);
// Reads the definition of a charset that is not registered, and adds it to the further ones; null
// where the file is none, or is another charset's.
charset_group* read_further_definition(const char* fileName, const char* name, known_sets& known);
