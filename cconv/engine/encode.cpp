// Table-driven encoding: chooses the set of the target that contains the current character, and the
// code.
#include "cconv/engine/engine.h"
#include "cconv/registry/further.h"
#include "cconv/tables/table.h"

namespace {

void choose_set(session* s, const basic_set* set, u32 code) {
    s->outCode = code;
    s->outSetType = set->setType;
    s->outSetNo = set->setNo;
    s->outBytes = set->byteNum;
}

// If the target has the set that the character was decoded from, the code is kept. User-defined
// characters use the first user-defined set.
bool encode_by_set(session* s) {
    for (const basic_set* set : member_sets(s->dstGroup)) {
        if (set->setType == PVZAN_SET_USER_DEFINED) {
            if (s->ucsCode >= user_defined_first &&
                s->ucsCode - user_defined_first < set->eudcNumber) {
                s->outCode = s->ucsCode - user_defined_first + set->eudcStart;
                s->outSetType = set->setType;
                s->outBytes = set->byteNum;
                // outSetNo is not changed, deliberately: writers have no special form for these
                // sets, and write them like the set before.
                s->charSetNo = set->setNo;
                return true;
            }
        } else if (set->setNo == s->charSetNo) {
            choose_set(s, set, s->setCode);
            if (set->setNo == PVZAN_SET_JIS_X_0213 ||
                (s->outCode2 != 0 && code_of_pair(set, s->ucsCode, s->outCode2) != 0)) {
                s->outCode2 = 0; // the code includes the mark
            }
            return true;
        }
    }
    return false;
}

// The code that a set, or one of its extra encode tables, has for the character's Unicode value.
bool set_encodes(session* s, const basic_set* set, u16 position, u32& code) {
    if (!table_loaded(set->encodeTable)) {
        code = s->ucsCode;
        return true;
    }
    if (const std::optional<u32> value = find_value(set->encodeTable, s->ucsCode)) {
        if (*value != 0 || s->ucsCode == 0) {
            code = *value;
            return true;
        }
    }
    auto* extra_tables = static_cast<object_array*>(getArray(s->dstGroup->dsTableArrays, position));
    return extra_tables != nullptr &&
           dstDsTableArray(extra_tables, s->ucsCode, &code, &s->outDone) != 0;
}

// Handles a letter and a mark for which a set has a code.
bool encode_pair(session* s) {
    for (const basic_set* set : member_sets(s->dstGroup)) {
        if (const u32 code = code_of_pair(set, s->ucsCode, s->outCode2); code != 0) {
            choose_set(s, set, code);
            s->outCode2 = 0;
            return true;
        }
    }
    return false;
}

// The first set in order that has the character is used, not the shortest code.
bool encode_by_unicode(session* s) {
    if (s->outCode2 != 0 && encode_pair(s)) {
        return true;
    }
    u16 position = 0;
    for (const basic_set* set : member_sets(s->dstGroup)) {
        const u16 index = position++;
        if (set->setType == PVZAN_SET_USER_DEFINED) {
            continue;
        }
        u32 code = 0;
        if (!set_encodes(s, set, index, code)) {
            continue;
        }
        choose_set(s, set, code);
        if (set->setNo == PVZAN_SET_JIS_X_0213 && s->outCode2 != 0 &&
            ConvJISX0213CombiningFromUCS(s->ucsCode, s->outCode2, &s->outCode) != 0) {
            s->outCode2 = 0;
        }
        return true;
    }
    return false;
}

// Control codes that are in no table are written unchanged: in ASCII or JIS Roman, or else in the
// set with the shortest codes.
bool encode_control_code(session* s) {
    if (IsControlCode(s->setCode) == 0) {
        return false;
    }
    const basic_set* narrowest = nullptr;
    for (const basic_set* set : member_sets(s->dstGroup)) {
        if (set->setNo == PVZAN_SET_ISO_646_IRV || set->setNo == PVZAN_SET_JIS_X_0201_LATIN) {
            choose_set(s, set, s->setCode);
            return true;
        }
        if (narrowest == nullptr || set->byteNum < narrowest->byteNum) {
            narrowest = set;
        }
    }
    if (narrowest == nullptr) {
        return false;
    }
    choose_set(s, narrowest, s->setCode);
    return true;
}

} // namespace

void derive_unicode(session* s) {
    const basic_set* set = s->setCode != 0 ? registered_set(s->charSetNo) : nullptr;
    if (set == nullptr) {
        return;
    }
    if (set->setNo == PVZAN_SET_JIS_X_0213 && IsJISX0213Combining(s->setCode) != 0) {
        ConvJISX0213CombiningToUCS(s->setCode, &s->ucsCode, &s->outCode2);
    } else {
        set_unicode(s, map_code(set->decodeTable, s->setCode));
    }
}

extern "C" u32 convDstConvert(session* s) {
    if (s->status == PVZAN_OUTPUT_FULL) {
        return 1; // chosen by an earlier call
    }
    if (s->status == PVZAN_TERMINATE) {
        return stop_with(s, PVZAN_DONE); // charsets of tables need no closing
    }
    if (encode_by_set(s)) {
        return 1;
    }
    // The writer replaces this status; it remains if a rule writes nothing.
    s->status = PVZAN_UNREPRESENTABLE;
    if (s->ucsCode == 0) {
        derive_unicode(s);
    }
    const bool is_nul = s->ucsCode == 0 && s->srcCode == 0;
    if ((s->ucsCode != 0 || is_nul) && encode_by_unicode(s)) {
        return 1;
    }
    return encode_control_code(s) ? 1 : 0;
}
