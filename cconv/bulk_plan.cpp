// Which pairs of charsets the fast path can remember, and by what.
#include "cconv/bulk.h"
#include "cconv/bulk_memory.h"
#include "cconv/names.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/table.h"

#include <algorithm>
#include <array>

namespace {

// With these rules a character's length follows from its lead byte, and its meaning from its bytes.
bool reads_by_lead_byte(rule_function decoder) {
    constexpr std::array known = {destSHIFT_JIS, destSHIFT_JIS_2004, destWINDOWS31J, destEUC_JP,
                                  destEUC_JIS_2004};
    return std::ranges::find(known, decoder) != known.end();
}

// The table-driven rules try the sets in order: a byte, or a pair of bytes, decides alone when no
// longer code is tried before it.
bool tries_short_codes_first(const charset_group* group) {
    u32 longest = 0;
    for (const basic_set* set : member_sets(group)) {
        if (set->byteNum == 0 || (set->byteNum <= 2 && set->byteNum < longest)) {
            return false;
        }
        longest = std::max<u32>(longest, set->byteNum);
    }
    return longest > 0;
}

bool has_two_byte_sets_only(const charset_group* group) {
    for (const basic_set* set : member_sets(group)) {
        if (set->byteNum != 2) {
            return false;
        }
    }
    return !member_sets(group).empty();
}

std::optional<bulk_reader> reader_of(const session* s) {
    const rule_function decoder = s->srcRule->function;
    const bool big = s->source.srcBigEndian != 0;
    if (decoder == destUTF_8) {
        return bulk_reader::utf8;
    }
    if (decoder == destUTF_16 ||
        (decoder == destISO_10646_UCS_2 && has_two_byte_sets_only(s->srcGroup))) {
        return big ? bulk_reader::unit_big : bulk_reader::unit_little;
    }
    if (decoder == destISO_10646_UCS_4) {
        return big ? bulk_reader::quad_big : bulk_reader::quad_little;
    }
    if (decoder == destISO_2022_JP || decoder == destISO_2022_JP_2004) {
        return bulk_reader::iso2022;
    }
    if (bulk_reads_by_lead_byte(s)) {
        return bulk_reader::lead_bytes;
    }
    return std::nullopt;
}

bulk_writer writer_of(const session* s) {
    const rule_function encoder = s->dstRule->function;
    if (encoder != constISO_2022_JP && encoder != constISO_2022_JP_2004) {
        return bulk_writer::plain;
    }
    return s->dstGroupNo == PVZAN_ISO_2022_JP_2004 ? bulk_writer::iso2022_2004
                                                   : bulk_writer::iso2022;
}

// What is written must depend on the character, and on the set designated before it, alone: not on
// language tags, a mark still to come, or the substitutes.
bool writes_by_character(const session* s) {
    const bool refers =
        s->dstRule->function == constISO_10646_UCS_2 && s->target.charRefMode != PVZAN_CHARREF_OFF;
    if (refers || s->target.dstWriteBom != 0 || s->source.srcCheckBom != 0 ||
        s->baseLang[0] != '\0') {
        return false;
    }
    // A user-defined set writes no outSetNo: that would stay the one of two characters before.
    return std::ranges::none_of(
        std::span(s->dstGroup->memberSets->items, s->dstGroup->memberSets->count),
        [](const void* set) {
            return static_cast<const basic_set*>(set)->setType == PVZAN_SET_USER_DEFINED;
        });
}

bool is_registered(const charset_group* group) {
    return group != nullptr && g_ProcessObject.groups != nullptr &&
           findGroupArray(g_ProcessObject.groups, group->groupNo) == group;
}

// What line breaks become; 0 where they are characters like others.
u32 newline_key(const session* s) {
    const u32 mode = s->target.newlineMode;
    const bool named = mode >= PVZAN_NEWLINE_CR && mode <= PVZAN_NEWLINE_PARAGRAPH_SEPARATOR;
    return s->target.convertNewline == 0 ? 0 : named ? mode : u32{PVZAN_NEWLINE_CRLF};
}

// A charset of one set without tables: its scalars stand for themselves.
bool is_plain_unicode(const charset_group* group) {
    const auto sets = member_sets(group);
    if (sets.empty() || group->memberSets->count != 1) {
        return false;
    }
    const basic_set* set = *sets.begin();
    return set->setType != PVZAN_SET_USER_DEFINED && set->decodeTable->fileName[0] == '\0' &&
           set->encodeTable->fileName[0] == '\0' && !table_loaded(set->decodeTable) &&
           !table_loaded(set->encodeTable);
}

// The form that blocks take between two charsets of Unicode.
bulk_blocks blocks_of(const session* s, bulk_reader reader) {
    if (!bulk_reads_scalars(reader) || !is_plain_unicode(s->srcGroup) ||
        !is_plain_unicode(s->dstGroup)) {
        return bulk_blocks::entries;
    }
    const rule_function encoder = s->dstRule->function;
    const bool big = s->target.dstBigEndian != 0;
    if (encoder == constUTF_8) {
        return bulk_blocks::utf8;
    }
    if (encoder == constUTF_16 || encoder == constISO_10646_UCS_2) {
        return big ? bulk_blocks::units_big : bulk_blocks::units_little;
    }
    if (encoder == constISO_10646_UCS_4) {
        return big ? bulk_blocks::quads_big : bulk_blocks::quads_little;
    }
    return bulk_blocks::entries;
}

bulk_key key_of(const session* s) {
    // The list of charsets stands for what may have become of the two.
    const object_array* groups = g_ProcessObject.groups;
    bulk_key key{groups != nullptr ? groups->items : nullptr,
                 groups != nullptr ? groups->count : u32{0},
                 s->srcGroup,
                 s->dstGroup,
                 s->srcRule,
                 s->dstRule,
                 s->source.srcBigEndian != 0,
                 s->target.dstBigEndian != 0,
                 newline_key(s),
                 table_generation(),
                 s->target.useSubstitute != 0,
                 {}};
    if (key.use_substitute != 0) {
        const u32 substitutes[] = {s->subst1.setNo, s->subst1.code, s->subst2.setNo,
                                   s->subst2.code};
        std::ranges::copy(substitutes, key.substitutes);
    }
    return key;
}

} // namespace

bool bulk_reads_by_lead_byte(const session* s) {
    const rule_function decoder = s->srcRule->function;
    const bool table_driven = decoder == destSAME || decoder == destOASYS_WIN;
    return reads_by_lead_byte(decoder) || (table_driven && tries_short_codes_first(s->srcGroup));
}

bool bulk_is_registered(const session* s) {
    return is_registered(s->srcGroup) && is_registered(s->dstGroup);
}

std::optional<bulk_plan> bulk_plan_of(const session* s) {
    const auto reader = reader_of(s);
    const bulk_writer writer = writer_of(s);
    // With states at both ends little is left that stands alone.
    const bool both_stateful = reader == bulk_reader::iso2022 && writer != bulk_writer::plain;
    if (!reader || both_stateful || !writes_by_character(s)) {
        return std::nullopt;
    }
    const bulk_blocks blocks =
        writer == bulk_writer::plain ? blocks_of(s, *reader) : bulk_blocks::entries;
    return bulk_plan{key_of(s), *reader, writer, blocks};
}
