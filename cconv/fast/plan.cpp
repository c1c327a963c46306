// From the traits of two codecs, the sets of two charsets and the options: how a pair is converted.
#include "cconv/fast/readers.h"
#include "cconv/rulefunc/designations.h"
#include "cconv/tables/table.h"

#include <algorithm>
#include <optional>

namespace fast {

namespace {

bool all_two_bytes_wide(const charset_group* group) {
    for (const basic_set* set : member_sets(group)) {
        if (set->byteNum != 2) {
            return false;
        }
    }
    return !member_sets(group).empty();
}

// The table-driven rules try the sets in order: a code decides alone when no longer one is tried
// before it. Sets of no bytes, and of more than a code may have, are none.
bool widths_ascend(const charset_group* group) {
    u32 widest = 1;
    for (const basic_set* set : member_sets(group)) {
        if (set->byteNum < widest || set->byteNum > max_code_bytes) {
            return false;
        }
        widest = set->byteNum;
    }
    return !member_sets(group).empty();
}

std::optional<reader> reader_of(const session* s, reading how) {
    const bool big = s->source.srcBigEndian != 0;
    const reader unit = big ? reader::unit_big : reader::unit_little;
    switch (how) {
    case reading::lead_byte: return reader::lead_bytes;
    case reading::pairs: return reader::unit_big;
    case reading::utf8: return reader::utf8;
    case reading::utf16: return unit;
    case reading::ucs4: return big ? reader::quad_big : reader::quad_little;
    case reading::escapes: return reader::iso2022;
    case reading::ucs2:
        if (all_two_bytes_wide(s->srcGroup)) {
            return unit;
        }
        break;
    case reading::sets:
        if (all_two_bytes_wide(s->srcGroup)) {
            return reader::unit_big; // the bytes are the key, in any order
        }
        if (widths_ascend(s->srcGroup)) {
            return reader::lead_bytes;
        }
        break;
    }
    return std::nullopt;
}

// A charset of one set without tables: its scalars stand for themselves.
bool is_plain_unicode(const charset_group* group) {
    if (member_sets(group).empty() || group->memberSets->count != 1) {
        return false;
    }
    const basic_set* set = *member_sets(group).begin();
    return set->setType != PVZAN_SET_USER_DEFINED && set->decodeTable->fileName[0] == '\0' &&
           set->encodeTable->fileName[0] == '\0' && !table_loaded(set->decodeTable) &&
           !table_loaded(set->encodeTable);
}

block_form unicode_blocks(const plan& p, bool big) {
    switch (p.target->form) {
    case unicode_form::utf8: return block_form::utf8;
    case unicode_form::units: return big ? block_form::units_big : block_form::units_little;
    case unicode_form::quads: return big ? block_form::quads_big : block_form::quads_little;
    case unicode_form::none: break;
    }
    return block_form::entries;
}

// Blocks, where the machine has kernels for both ends of them.
block_form blocks_of(const session* s, const plan& p) {
    const kernels& k = chosen_kernels();
    if (p.target->designates) {
        return block_form::none;
    }
    if (p.reader == reader::iso2022) {
        return k.seven_bit_pairs != nullptr ? block_form::entries : block_form::none;
    }
    if (p.reader == reader::lead_bytes) {
        return k.split_codes != nullptr ? block_form::entries : block_form::none;
    }
    const bool unicode = p.source->form != unicode_form::none && is_plain_unicode(s->srcGroup) &&
                         is_plain_unicode(s->dstGroup);
    block_form form =
        unicode ? unicode_blocks(p, s->target.dstBigEndian != 0) : block_form::entries;
    if (form == block_form::utf8 && k.encode_utf8 == nullptr) {
        form = block_form::none;
    }
    const bool decodes =
        p.reader != reader::utf8 ||
        (k.decode_utf8 != nullptr && (form != block_form::entries || k.decode_pays_for_entries));
    return decodes ? form : block_form::none;
}

// The scalars that end a block between Unicode charsets: marks, which may join the letter before
// them, and line breaks where they are normalised.
void set_stops(plan& p) {
    for (const u16 mark : combining_marks) {
        p.stops[p.stop_count++] = mark;
    }
    if (p.normalises) {
        for (const u16 line_break : {u16{'\r'}, u16{'\n'}, u16{0x2028}, u16{0x2029}}) {
            p.stops[p.stop_count++] = line_break;
        }
    }
}

ascii_unit source_unit(reader r) {
    switch (r) {
    case reader::unit_big: return {2, true};
    case reader::unit_little: return {2, false};
    case reader::quad_big: return {4, true};
    case reader::quad_little: return {4, false};
    default: return {1, true};
    }
}

// The sets that escape sequences may designate and entries are for: those that the charset has, in
// the width that the keys are for. Behind others the rules refuse even line controls.
u32 designated_sets(const charset_group* group) {
    u32 sets = 0;
    for (const basic_set* set : member_sets(group)) {
        const basic_set* found = designated_set(group, set->setNo);
        if (found != nullptr && iso2022_base(set->setNo) != no_base &&
            is_double_byte_width(found->byteNum) == is_double_byte_set(set->setNo)) {
            sets |= designation_bit(set->setNo);
        }
    }
    return sets;
}

u32 loaded(const table_object* table) {
    return table != nullptr && table_loaded(table) ? 1 : 0;
}

u32 loaded_of_number(u32 setNo) {
    const object_array* sets = g_ProcessObject.basics;
    const basic_set* set =
        sets != nullptr ? findBasicArray(g_ProcessObject.basics, setNo) : nullptr;
    return set != nullptr ? loaded(set->decodeTable) : 0;
}

} // namespace

due what_is_due(const session* s, const codec_traits& source, const codec_traits& target) {
    const bool refers = target.refers && s->target.charRefMode != PVZAN_CHARREF_OFF;
    if (refers || (target.writes_marks && s->baseLang[0] != '\0')) {
        return due::others;
    }
    const bool mark = (source.checks_mark && s->source.srcCheckBom != 0) ||
                      (target.writes_marks && s->target.dstWriteBom != 0);
    return mark ? due::mark : due::characters;
}

bool make_plan(const session* s, plan& made) {
    const std::optional<reader> found = reader_of(s, made.source->read);
    // With states at both ends little is left that stands alone.
    if (!found || (*found == reader::iso2022 && made.target->designates)) {
        return false;
    }
    made.reader = *found;
    made.normalises = s->target.convertNewline != 0;
    made.source_unit = source_unit(made.reader);
    made.source_sets = made.reader == reader::iso2022 ? designated_sets(s->srcGroup) : 0;
    made.blocks = blocks_of(s, made);
    set_stops(made);
    return true;
}

u32 count_own_tables(const pair_key& key, const plan& p) {
    u32 count = 0;
    for (const basic_set* set : member_sets(key.source)) {
        count += loaded(set->decodeTable) + loaded_of_number(set->setNo);
    }
    for (const u32 setNo : p.source->sets) {
        count += loaded_of_number(setNo);
    }
    for (const basic_set* set : member_sets(key.target)) {
        count += loaded(set->encodeTable);
    }
    for (const object_array* extra : items_of<object_array>(key.target->dsTableArrays)) {
        for (const table_object* table : items_of<table_object>(extra)) {
            count += loaded(table);
        }
    }
    return count;
}

} // namespace fast
