// Plans how a pair is converted: from the traits of two codecs, the sets of two charsets, and the
// options.
#include "cconv/engine/step.h"
#include "cconv/fast/readers.h"
#include "cconv/registry/further.h"
#include "cconv/rulefunc/iso2022.h"
#include "cconv/tables/table.h"

#include <algorithm>

namespace fast {

namespace {

// The widths of the charset's first and last set. The table-driven rules try the sets in order, and
// the code alone decides only if no longer one is tried before it: zeros if the widths do not
// ascend, are none, or more than a code may have.
struct code_widths {
    u32 first, last;

    bool operator==(const code_widths&) const = default;
};
code_widths widths_of(const charset_group* group) {
    code_widths found{0, 0};
    for (const basic_set* set : member_sets(group)) {
        const u32 width = set->byteNum;
        if (width < std::max(found.last, 1U) || width > max_code_bytes) {
            return {0, 0};
        }
        found = {found.last == 0 ? width : found.first, width};
    }
    return found;
}

// The byte that the first code of three bytes begins with; others are the rules' own.
u8 single_shift_of(const charset_group* group) {
    for (const basic_set* set : member_sets(group)) {
        object_array* const ranges = set->byteNum == 3 ? set->defined->ranges : nullptr;
        const auto* first = static_cast<const limit*>(getArray(ranges, 0));
        const u8 lead = first != nullptr ? static_cast<u8>(first->low >> 16) : no_single_shift;
        if (lead >= 0x80) {
            return lead;
        }
    }
    return no_single_shift;
}

constexpr ascii_unit single_bytes{1, true};

charset_states states_of(const charset_group* group, const codec_traits& codec) {
    return codec.states != nullptr ? charset_states{codec.states->codes(group), codec.states, group}
                                   : charset_states{};
}

// Plans how source characters are distinguished, and their units; false if the rules are needed.
bool plan_reading(const session* s, plan& p) {
    const bool big = s->source.srcBigEndian != 0;
    const code_widths widths = widths_of(s->srcGroup);
    const bool pairs = widths == code_widths{2, 2};
    const auto read_by = [&](fast::reader how, ascii_unit unit) {
        p.reader = how;
        p.source_unit = unit;
        return true;
    };
    p.single_shift =
        p.source->read == reading::sets ? single_shift_of(s->srcGroup) : p.source->single_shift;
    switch (p.source->read) {
    case reading::lead_byte: return read_by(reader::lead_bytes, single_bytes);
    case reading::pairs: return read_by(reader::units, {2, true});
    case reading::utf8: return read_by(reader::utf8, single_bytes);
    case reading::utf16: return read_by(reader::units, {2, big});
    case reading::ucs4: return read_by(reader::quads, {4, big});
    case reading::escapes:
    case reading::scanned:
        return p.source->like_utf8
                   ? read_by(reader::utf8, single_bytes)
                   : p.source_states.codes != nullptr && read_by(reader::states, single_bytes);
    case reading::ucs2: return pairs && read_by(reader::units, {2, big});
    case reading::sets:
        // The bytes of a pair are the key, in any order.
        return pairs ? read_by(reader::units, {2, true})
                     : widths.last != 0 && read_by(reader::lead_bytes, single_bytes);
    }
    return false;
}

// A charset with one set without tables: codes are Unicode values.
bool is_plain_unicode(const charset_group* group) {
    if (member_sets(group).empty() || group->memberSets->count != 1) {
        return false;
    }
    const basic_set* set = *member_sets(group).begin();
    return set->setType != PVZAN_SET_USER_DEFINED && !table_loaded(set->decodeTable) &&
           !table_loaded(set->encodeTable);
}

ascii_unit target_unit(const session* s, unicode_form form) {
    const bool big = s->target.dstBigEndian != 0;
    return form == unicode_form::units   ? ascii_unit{2, big}
           : form == unicode_form::quads ? ascii_unit{4, big}
                                         : single_bytes;
}

// The values that end a block between Unicode charsets: marks, which may belong to the letter
// before them, and line breaks if they are converted.
constexpr auto block_stops = [] {
    constexpr std::size_t breaks = std::size(control_breaks) + std::size(line_separators);
    std::array<u16, std::size(combining_marks) + breaks> made{};
    auto* at = std::ranges::copy(combining_marks, made.begin()).out;
    at = std::ranges::copy(control_breaks, at).out;
    std::ranges::copy(line_separators, at);
    return made;
}();

// Assigns the keys as described in reader_states.h.
void place_sets(plan& p) {
    if (p.source_states.codes == nullptr) {
        return;
    }
    const iso2022& codes = *p.source_states.codes;
    p.eight_bits = std::ranges::any_of(
        codes.sets(), [](const graphic_set& set) { return set.width > 1 && set.last[0] > 0x7F; });
    u32 number = 0, doubles = 0;
    for (const graphic_set& set : codes.sets()) {
        const bool two = set.width > 1;
        const bool fits = !two || (p.eight_bits ? doubles < 1 && set.first[0] >= 0x10
                                                : doubles < 3 && set.first[0] >= 0x20 &&
                                                      set.last[0] <= 0x7F && set.last[1] <= 0x7F);
        ++number;
        p.sets[number] = {fits ? &set : nullptr, static_cast<u16>(two ? doubles++ << 14 : 0),
                          static_cast<u16>(single_key(p.eight_bits, number)), two && fits};
    }
}

// Whether the fast path can write the target's text.
bool can_write(const plan& p) {
    const iso2022* codes = p.target_states.codes;
    return codes != nullptr ? codes->set_count < line_way : !p.target->designates;
}

} // namespace

bool only_characters_due(const session* s, const plan& p) {
    const bool mark = (p.source->checks_mark && s->source.srcCheckBom != 0) ||
                      (p.target->writes_marks && s->target.dstWriteBom != 0);
    return !mark && !(p.target->refers && s->target.charRefMode != PVZAN_CHARREF_OFF) &&
           !(p.target->writes_marks && s->baseLang[0] != '\0');
}

bool make_plan(const session* s, plan& made) {
    made.source = traits_of_decoder(s->srcRule->function);
    made.target = traits_of_encoder(s->dstRule->function);
    // Only charsets in the registry never change.
    if (made.source == nullptr || made.target == nullptr || !is_registered(s->srcGroup) ||
        !is_registered(s->dstGroup)) {
        return false;
    }
    made.source_states = states_of(s->srcGroup, *made.source);
    made.target_states = states_of(s->dstGroup, *made.target);
    if (!plan_reading(s, made) || !can_write(made)) {
        return false;
    }
    place_sets(made);
    made.target_unit = target_unit(s, made.target->form);
    made.normalises = s->target.convertNewline != 0;
    made.by_form = made.source->form != unicode_form::none && is_plain_unicode(s->srcGroup) &&
                   made.target->form != unicode_form::none && is_plain_unicode(s->dstGroup);
    made.single_bytes =
        made.target_states.codes == nullptr && widths_of(s->srcGroup) == code_widths{1, 1};
    made.stops = std::span(block_stops)
                     .first(made.normalises ? block_stops.size() : std::size(combining_marks));
    return true;
}

} // namespace fast
