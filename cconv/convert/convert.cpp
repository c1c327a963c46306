// The four calls that run a conversion, and the driver, which alternates between the decode and the
// encode rule.
#include "cconv/convert/lifecycle.h"
#include "cconv/directory/directory.h"
#include "cconv/engine/engine.h"
#include "cconv/engine/step.h"
#include "cconv/fast/fast.h"
#include "cconv/registry/names.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"

namespace {

// ---- Opening -----------------------------------------------------------------------------------

enum class direction { encode, decode };

// Finds a charset by name; otherwise, since callers may rely on it, by the number of the name among
// those read at the start.
charset_group* charset_of(const char* name) {
    charset_group* group = find_charset(name);
    return group == nullptr && name != nullptr && definitions_settled()
               ? findGroupArray(g_ProcessObject.groups, group_number(name))
               : group;
}

// A table that cannot be loaded is not an error here; its characters are unknown.
void load_tables(const charset_group* group, direction wanted) {
    for (basic_set* set : member_sets(group)) {
        if (set->setType != PVZAN_SET_USER_DEFINED) {
            loadTableFile(wanted == direction::encode ? set->encodeTable : set->decodeTable);
        }
    }
}

void clear_session(session* s) {
    constexpr std::size_t begin = offsetof(session, status), end = offsetof(session, source);
    std::memset(reinterpret_cast<char*>(s) + begin, 0, end - begin);
    s->subst1 = {};
    s->subst2 = {};
}

// ---- Substitutes -------------------------------------------------------------------------------

constexpr u16 question_mark = 0x003F;
constexpr u16 geta_mark = 0x3013;             // the printer's sign for a missing character
constexpr u16 fullwidth_equals_sign = 0xFF1D; // looks similar

// Finds a substitute in one set; it remains unresolved if the set lacks the character.
void try_substitute(const basic_set* set, u16 character, substitute& subst) {
    if (subst.code != 0) {
        return;
    }
    const u32 code = map_code(set->encodeTable, character);
    if (code != 0) {
        subst = {set->setNo, set->setType, code, set->byteNum};
    }
}

bool resolve_substitutes(session* s) {
    for (const basic_set* set : member_sets(s->dstGroup)) {
        if (set->setType != PVZAN_SET_USER_DEFINED) {
            try_substitute(set, s->target.substChar1, s->subst1);
            try_substitute(set, s->target.substChar2, s->subst2);
        }
    }
    return s->subst1.code != 0 && s->subst2.code != 0;
}

// A substitute that was found is kept, so that the caller's choice for one kind survives a fallback
// for the other.
void choose_substitutes(session* s) {
    for (const u16 fallback : {geta_mark, fullwidth_equals_sign, question_mark}) {
        if (resolve_substitutes(s)) {
            return;
        }
        s->target.substChar1 = question_mark;
        s->target.substChar2 = fallback;
    }
}

// ---- Driving -----------------------------------------------------------------------------------

constexpr bool is_resume_point(u32 status) {
    return status == PVZAN_DECODED || status == PVZAN_INPUT_INCOMPLETE || status == PVZAN_WRITTEN ||
           status == PVZAN_OUTPUT_FULL;
}

// Decodes and encodes in turn until all input has been used or something stops it; the status says
// what. If the previous call ended at a fault, there is probably another one nearby.
void drive(session* s, bool behind_fault) {
    fast::path fast(behind_fault);
    for (;;) {
        if (s->status == PVZAN_INPUT_INCOMPLETE || s->status == PVZAN_WRITTEN) {
            if (s->status == PVZAN_WRITTEN) {
                fast.run(s);
            }
            if (input_left(s).empty()) {
                s->status = PVZAN_DONE;
                return;
            }
            decode_step(s);
            if (s->status == PVZAN_WRITTEN) {
                continue; // dropped
            }
        }
        if (s->status != PVZAN_DECODED && s->status != PVZAN_OUTPUT_FULL) {
            return;
        }
        encode_step(s);
        if (s->status != PVZAN_WRITTEN && s->status != PVZAN_DECODED) {
            return;
        }
    }
}

} // namespace

extern "C" {

u32 cconvInitConvert(session* s, const target_options* options, const char* name) {
    cconvLoadRule();
    getCharsetPath(nullptr, 0); // chooses the default directory
    charset_group* group = charset_of(name);
    clear_session(s);
    if (group == nullptr) {
        return s->status = PVZAN_UNKNOWN_CHARSET;
    }
    load_tables(group, direction::encode);
    s->dstGroupNo = group->groupNo;
    s->dstGroup = group;
    s->dstRule = TheRule(group->constRule);
    s->target = options != nullptr ? *options : target_options{};
    if (s->target.useSubstitute != 0) {
        choose_substitutes(s);
    }
    copy_text(s->baseLang, s->target.langTag);
    copy_text(s->outLang, s->target.langTag);
    copy_text(s->curLang, s->target.langTag);
    return s->status = PVZAN_DONE;
}

u32 cconvChgCharset(session* s, const source_options* options, const char* name) {
    charset_group* group = charset_of(name);
    if (group == nullptr) {
        s->srcRule = nullptr;
        return s->status = PVZAN_UNKNOWN_CHARSET;
    }
    load_tables(group, direction::decode);
    s->srcGroupNo = group->groupNo;
    s->srcGroup = group;
    s->srcRule = TheRule(group->destRule);
    s->charSetNo = 0;
    s->charSetType = 0;
    s->srcShiftSet = PVZAN_SET_ISO_646_IRV;
    s->srcCode = 0;
    s->setCode = 0;
    s->ucsCode = 0;
    s->outCode = 0;
    s->source = options != nullptr ? *options : source_options{};
    return s->status = PVZAN_DONE;
}

u32 cconvConvert(session* s) {
    if (s->srcRule == nullptr || s->dstRule == nullptr) {
        return s->status = PVZAN_UNKNOWN_CHARSET;
    }
    const bool behind_fault =
        s->status == PVZAN_INVALID_INPUT || s->status == PVZAN_UNREPRESENTABLE;
    if (!is_resume_point(s->status)) {
        s->status = PVZAN_WRITTEN;
    }
    drive(s, behind_fault);
    return s->status;
}

u32 cconvTermConvert(session* s) {
    if (s->dstRule == nullptr) {
        return s->status = PVZAN_DONE;
    }
    s->status = PVZAN_TERMINATE;
    s->dstRule->function(s);
    return s->status;
}

} // extern "C"
