// The four calls that run a conversion, and the driver that alternates decode and encode rule.
#include "cconv/bulk.h"
#include "cconv/engine.h"
#include "cconv/lifecycle.h"
#include "cconv/names.h"
#include "cconv/short_text.h"
#include "cconv/table.h"
#include "platform/platform.h"

namespace {

// ---- Opening -----------------------------------------------------------------------------------

enum class direction { encode, decode };

charset_group* find_charset(const char* name) {
    return name != nullptr && definitions_settled()
               ? findGroupArray(g_ProcessObject.groups, group_number(name))
               : nullptr;
}

// A table that cannot be loaded is no reason to stop: what it would have mapped is unknown.
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
constexpr u16 geta_mark = 0x3013;             // the typesetter's "missing character"
constexpr u16 fullwidth_equals_sign = 0xFF1D; // looks much the same

// Resolves a substitute in one set; unresolved it stays when the set lacks the character.
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

// What one try resolves stays: the caller's own choice for one kind survives a fallback for the
// other.
void choose_substitutes(session* s) {
    for (const u16 fallback : {geta_mark, fullwidth_equals_sign, question_mark}) {
        if (resolve_substitutes(s)) {
            return;
        }
        s->target.substChar1 = question_mark;
        s->target.substChar2 = fallback;
    }
}

void load_substitute(session* s) {
    const substitute& subst = s->setCode <= 0xFF ? s->subst1 : s->subst2;
    s->outSetNo = subst.setNo;
    s->outSetType = subst.setType;
    s->outCode = subst.code;
    s->outBytes = subst.bytes;
    s->outDone = 0;
}

// ---- Driving -----------------------------------------------------------------------------------

constexpr bool is_resume_point(u32 status) {
    return status == PVZAN_DECODED || status == PVZAN_INPUT_INCOMPLETE || status == PVZAN_WRITTEN ||
           status == PVZAN_OUTPUT_FULL;
}

// Runs the decode rule for the next character. A rule after which one goes on although it took no
// input (a set of zero bytes, an encode rule that a definition names here) would do so for ever:
// that is invalid input.
void decode_character(session* s) {
    const bool first_attempt = s->status != PVZAN_INPUT_INCOMPLETE;
    if (first_attempt) {
        s->prevSrcCode = s->srcCode;
    }
    s->srcCode = 0;
    s->setCode = 0;
    s->ucsCode = 0;
    s->outCode = 0;
    s->outBytes = 0;
    s->outDone = 0;
    s->outCode2 = 0;

    const i32 before = s->inPos;
    s->srcRule->function(s);
    const bool goes_on = s->status == PVZAN_DECODED || s->status == PVZAN_WRITTEN ||
                         s->status == PVZAN_OUTPUT_FULL || s->status == PVZAN_UNREPRESENTABLE;
    if (goes_on && s->inPos == before) {
        s->status = PVZAN_INVALID_INPUT;
    }
    if (s->status == PVZAN_INVALID_INPUT && s->source.skipInvalid != 0) {
        if (s->inPos == before) {
            ++s->inPos;
        }
        s->status = PVZAN_WRITTEN;
    }
    // Input that held no character, an escape sequence say, leaves the one before as the previous
    // one.
    if (s->status == PVZAN_DONE) {
        s->srcCode = s->prevSrcCode;
    }
}

// Folds every kind of line break to CR, which the output stage writes as asked. False: the LF of a
// CR LF, to be dropped.
bool normalise_newline(session* s) {
    if (s->srcCode == '\n' && s->prevSrcCode == '\r') {
        return false;
    }
    if (s->srcCode == '\n' || s->srcCode == '\r' || s->ucsCode == 0x2028 || s->ucsCode == 0x2029) {
        s->ucsCode = '\r';
        s->setCode = '\r';
    }
    return true;
}

// Runs the encode rule until the character, or a substitute for it, is written, dropped or stopped
// at.
void encode_character(session* s) {
    if (s->target.convertNewline != 0 && !normalise_newline(s)) {
        s->status = PVZAN_WRITTEN;
        return;
    }
    s->dstRule->function(s);
    if (s->status != PVZAN_UNREPRESENTABLE || s->target.useSubstitute == 0) {
        return;
    }
    load_substitute(s);
    s->status = PVZAN_OUTPUT_FULL; // "write what is prepared"
    s->dstRule->function(s);
    if (s->status == PVZAN_UNREPRESENTABLE) {
        s->status = PVZAN_WRITTEN; // no writing that either: the character is dropped
    }
}

// Decodes and encodes in turn until the input is used up or something stops it; the status tells.
void drive(session* s, bulk_guide& bulk, short_guide& known) {
    for (;;) {
        if (s->status == PVZAN_INPUT_INCOMPLETE || s->status == PVZAN_WRITTEN) {
            if (s->status == PVZAN_WRITTEN) {
                bulk.run(s);
                known.run(s);
            }
            if (input_left(s).empty()) {
                s->status = PVZAN_DONE;
                return;
            }
            bulk.begin(s);
            known.begin(s);
            decode_character(s);
            if (s->status == PVZAN_WRITTEN) {
                continue; // dropped
            }
        }
        if (s->status != PVZAN_DECODED && s->status != PVZAN_OUTPUT_FULL) {
            return;
        }
        encode_character(s);
        bulk.learn(s);
        known.learn(s);
        if (s->status != PVZAN_WRITTEN && s->status != PVZAN_DECODED) {
            return;
        }
    }
}

} // namespace

extern "C" {

u32 cconvInitConvert(session* s, const target_options* options, const char* name) {
    cconvLoadRule();
    getCharsetPath(nullptr, 0); // settles the default
    charset_group* group = find_charset(name);
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
    charset_group* group = find_charset(name);
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
    if (!is_resume_point(s->status)) {
        s->status = PVZAN_WRITTEN;
    }
    short_guide known;
    bulk_guide bulk(s);
    drive(s, bulk, known);
    bulk.leave(s);
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
