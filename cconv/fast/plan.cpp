// Plans how a pair is converted: from the traits of two codecs, the sets of two charsets, and the
// options.
#include "cconv/engine/step.h"
#include "cconv/fast/readers.h"
#include "cconv/rulefunc/iso2022.h"
#include "cconv/tables/table.h"

#include <algorithm>
#include <optional>

namespace fast {

namespace {

bool all_wide(const charset_group* group, u32 bytes) {
    for (const basic_set* set : member_sets(group)) {
        if (set->byteNum != bytes) {
            return false;
        }
    }
    return !member_sets(group).empty();
}

// The table-driven rules try the sets in order. The code alone decides only if no longer one is
// tried before it. Sets with no bytes, or with more than a code may have, are not supported.
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

// How source characters are distinguished, and their units; none if the rules are needed.
struct source_form {
    fast::reader reader;
    ascii_unit unit;
};
constexpr ascii_unit single_bytes{1, true};

charset_states states_of(const charset_group* group, const codec_traits& codec) {
    return codec.states != nullptr ? charset_states{codec.states->codes(group), codec.states, group}
                                   : charset_states{};
}

std::optional<source_form> source_form_of(const session* s, const codec_traits& codec) {
    const bool big = s->source.srcBigEndian != 0;
    const bool pairs = all_wide(s->srcGroup, 2);
    switch (codec.read) {
    case reading::lead_byte: return {{reader::lead_bytes, single_bytes}};
    case reading::pairs: return {{reader::units, {2, true}}};
    case reading::utf8: return {{reader::utf8, single_bytes}};
    case reading::utf16: return {{reader::units, {2, big}}};
    case reading::ucs4: return {{reader::quads, {4, big}}};
    case reading::escapes:
    case reading::scanned:
        if (states_of(s->srcGroup, codec).codes != nullptr) {
            return {{reader::states, single_bytes}};
        }
        break;
    case reading::ucs2:
        if (pairs) {
            return {{reader::units, {2, big}}};
        }
        break;
    case reading::sets:
        if (pairs) {
            return {{reader::units, {2, true}}}; // the bytes are the key, in any order
        }
        if (widths_ascend(s->srcGroup)) {
            return {{reader::lead_bytes, single_bytes}};
        }
        break;
    }
    return std::nullopt;
}

// A charset with one set without tables: codes are Unicode values.
bool is_plain_unicode(const charset_group* group) {
    if (member_sets(group).empty() || group->memberSets->count != 1) {
        return false;
    }
    const basic_set* set = *member_sets(group).begin();
    return set->setType != PVZAN_SET_USER_DEFINED && set->decodeTable->fileName[0] == '\0' &&
           set->encodeTable->fileName[0] == '\0' && !table_loaded(set->decodeTable) &&
           !table_loaded(set->encodeTable);
}

block_form blocks_of(const session* s, const plan& p) {
    const bool scalars = p.source->form != unicode_form::none &&
                         p.target->form != unicode_form::none && is_plain_unicode(s->srcGroup) &&
                         is_plain_unicode(s->dstGroup);
    const bool has_blocks =
        chosen_kernels().has_blocks || (p.single_bytes && p.reader == reader::lead_bytes);
    return !has_blocks ? block_form::none : scalars ? block_form::scalars : block_form::entries;
}

ascii_unit target_unit(const session* s, unicode_form form) {
    const bool big = s->target.dstBigEndian != 0;
    return form == unicode_form::units   ? ascii_unit{2, big}
           : form == unicode_form::quads ? ascii_unit{4, big}
                                         : single_bytes;
}

// The values that end a block between Unicode charsets: marks, which may belong to the letter
// before them, and line breaks if they are converted.
void set_stops(plan& p) {
    const auto add = [&](std::span<const u16> scalars) {
        std::ranges::copy(scalars, p.stops + p.stop_count);
        p.stop_count += static_cast<u32>(scalars.size());
    };
    add(combining_marks);
    if (p.normalises) {
        add(control_breaks);
        add(line_separators);
    }
}

// Assigns the keys as described in reader_states.h.
void place_sets(plan& p) {
    if (p.source_states.codes == nullptr) {
        return;
    }
    const iso2022& codes = *p.source_states.codes;
    u32 number = 0, doubles = 0, first = 0x100, last = 0;
    for (u32 byte = 0; byte < 0x100; ++byte) {
        if (codes.opens_sequence(byte)) {
            first = std::min(first, byte);
            last = byte;
        }
    }
    p.opens_first = static_cast<u8>(first);
    p.opens_more = static_cast<u8>(last - first);
    for (const graphic_set& set : codes.sets()) {
        p.eight_bits = p.eight_bits || (set.width > 1 && set.last[0] > 0x7F);
    }
    const u32 singles = p.eight_bits ? 0 : 0xC000, most = p.eight_bits ? 1 : 3;
    for (const graphic_set& set : codes.sets()) {
        const bool fits = p.eight_bits
                              ? set.first[0] >= 0x10
                              : set.first[0] >= 0x20 && set.last[0] <= 0x7F && set.last[1] <= 0x7F;
        const bool two = set.width > 1;
        const auto single_base = static_cast<u16>(singles + (number++ << 8));
        p.sets[number] = {static_cast<u16>(two ? doubles << 14 : single_base),
                          single_base,
                          {set.first[0], set.first[1]},
                          {set.last[0], set.last[1]},
                          !two || (fits && doubles < most),
                          number == ascii_set,
                          two};
        doubles += two ? 1U : 0U;
    }
}

// Whether the fast path can write the target's text.
bool can_write(const plan& p) {
    const iso2022* codes = p.target_states.codes;
    const bool has_states =
        p.target->read == reading::scanned || p.target->read == reading::escapes;
    return codes != nullptr ? codes->set_count < line_way : !has_states;
}

} // namespace

bool only_characters_due(const session* s, const codec_traits& source, const codec_traits& target) {
    const bool mark = (source.checks_mark && s->source.srcCheckBom != 0) ||
                      (target.writes_marks && s->target.dstWriteBom != 0);
    return !mark && !(target.refers && s->target.charRefMode != PVZAN_CHARREF_OFF) &&
           !(target.writes_marks && s->baseLang[0] != '\0');
}

bool make_plan(const session* s, plan& made) {
    const std::optional<source_form> found = source_form_of(s, *made.source);
    made.source_states = states_of(s->srcGroup, *made.source);
    made.target_states = states_of(s->dstGroup, *made.target);
    if (!found || !can_write(made)) {
        return false;
    }
    place_sets(made);
    made.reader = found->reader;
    made.source_unit = found->unit;
    made.target_unit = target_unit(s, made.target->form);
    made.normalises = s->target.convertNewline != 0;
    made.single_bytes = made.target_states.codes == nullptr &&
                        all_wide(made.reader == reader::utf8 ? s->dstGroup : s->srcGroup, 1);
    made.blocks = blocks_of(s, made);
    set_stops(made);
    return true;
}

} // namespace fast
