// Base and difference sets: name, length of codes, what is defined, table.
#include "cconv/definition/set_read.h"

namespace {

constexpr element_keys range_keys{"<range>", "<range ", "</range>"};

// Reads what follows the code element: the defined ranges and the name of the table.
bool read_set_contents(document& main, document& in, const set_grammar& grammar,
                       const element& code, read_set& out) {
    const bool is_base = grammar.setType == PVZAN_SET_BASE;
    basic_set& set = *out.set;
    i32 behind = is_base ? skip_ranges(in, code.start) : code.end;
    if (const auto defined = find_element(in, "defined", is_base ? behind : code.start)) {
        if (loadHex(in.text, defined->start, defined->end, set.defined) == 0) {
            return false;
        }
        behind = defined->end;
    }
    const auto table = find_element(in, "srtable", behind);
    if (!table) {
        return true;
    }
    out.table.reset(xmlGetLink(&in, table->start, table->end));
    return xmlGetTable(&main, &in, table->start, table->end, set.decodeTable, set.encodeTable) != 0;
}

// Prepares both tables for counted codes, if the set has them.
bool count_codes(document& in, const element& code, basic_set& set) {
    code_bytes codes{};
    switch (counted_codes(in, code.start, code.end, codes)) {
    case counting::none: return true;
    case counting::faulty: return false;
    case counting::sound: break;
    }
    return make_linear(set.decodeTable, codes) && make_linear(set.encodeTable, codes);
}

} // namespace

i32 skip_ranges(document& in, i32 from) {
    element_finder ranges(in, range_keys);
    while (const auto range = ranges.find(from)) {
        from = range->end;
    }
    return from;
}

bool read_set_file(document& main, work_budget& budget, const char* file,
                   const set_grammar& grammar, read_set& out) {
    owned_document in;
    if (xmlReadFile(file, main.encoding, main.bigEndian, &in) == 0 ||
        !budget.spend(characters_in(in))) {
        return false;
    }
    out.characters = static_cast<i32>(characters_in(in));
    const auto body = find_element(in, grammar.set, 0);
    const auto name = body ? find_element(in, "name", body->start) : std::nullopt;
    const auto lang = name ? find_element(in, "lang", name->end) : std::nullopt;
    const auto code = lang ? find_element(in, grammar.code, lang->end) : std::nullopt;
    if (!code) {
        return false;
    }
    char text[text_bytes];
    u16 byteNum = 0;
    xmlGetBytenum(&in, code->start, code->end, &byteNum);
    xmlGetName(&in, name->start, name->end, text);
    out.set.reset(initBasic(text, grammar.setType, byteNum));
    if (out.set == nullptr || !count_codes(in, *code, *out.set)) {
        return false;
    }
    xmlGetLang(&in, lang->start, lang->end, out.set->lang);
    if (grammar.setType == PVZAN_SET_DIFFERENCE) {
        xmlGetBasedon(&in, code->start, code->end, out.set->basedOn);
    }
    return read_set_contents(main, in, grammar, *code, out);
}

counting counted_codes(document& in, i32 start, i32 end, code_bytes& codes) {
    const auto key = find_key(in, "linear=", start);
    if (!key || *key > end) {
        return counting::none;
    }
    const auto open = find_quote(in, *key, end);
    const auto close = open ? find_quote(in, *open, end) : std::nullopt;
    char text[text_bytes] = "";
    u16 bytes = 0;
    if (close) {
        xmlGetName(&in, *open, *close - i32{sizeof(u32)}, text);
    }
    xmlGetBytenum(&in, start, end, &bytes);
    return codes.read(text, bytes) ? counting::sound : counting::faulty;
}

extern "C" u32 loadHex(const u32* text, i32 start, i32 end, limit_array* limits) {
    const u32* extent = text + start / i32{sizeof(u32)};
    const i32 count = (end - start) / i32{sizeof(u32)};
    u32 largest_end = 0;
    i32 index = 0;
    u32 low = 0;
    while (xmlGetHex(extent, index, count, &index, &low) != 0) {
        u32 high = low;
        if (extent[index] == '-') {
            if (xmlGetHex(extent, index, count, &index, &high) == 0) {
                break; // a range without an end is not stored
            }
            largest_end = std::max(largest_end, high); // single codes do not count, deliberately
        }
        limit* range = initLimit(low, high);
        if (range != nullptr && addArray(limits->ranges, range) == 0) {
            termLimit(range);
            return 0;
        }
        ++index;
    }
    limits->minCode = 0;
    limits->maxCode = largest_end;
    return 1;
}
