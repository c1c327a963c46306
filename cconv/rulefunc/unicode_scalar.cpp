// Finds the set of a Unicode value, and reads and writes the language tags of Unicode text.
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/unicode_tags.h"
#include "cconv/tables/table.h"

#include <array>

namespace {

constexpr bool is_tag_character(u32 c) {
    return c >= first_tag_character && c <= cancel_tag;
}

// Tables only tell whether the set has the character; the value does not change.
bool set_holds(const basic_set* set, u32 c) {
    if (set->setType == PVZAN_SET_USER_DEFINED) {
        return c >= set->eudcStart && c - set->eudcStart < set->eudcNumber;
    }
    return c < 0x80 || !table_loaded(set->decodeTable) ||
           find_value(set->decodeTable, c).value_or(0) != 0;
}

// A tag inside a tag is passed to the collector of the outer one, so that a text full of tag
// beginnings does not need more stack.
thread_local bool collecting = false;

struct collecting_scope {
    collecting_scope() { collecting = true; }
    ~collecting_scope() { collecting = false; }
    collecting_scope(const collecting_scope&) = delete;
    collecting_scope& operator=(const collecting_scope&) = delete;
};

struct tag_text {
    std::array<char, text_bytes> letters{};
    std::size_t length = 0;
};

void take_language(session* s, const tag_text& tag) {
    std::memcpy(s->curLang, tag.letters.data(), tag.length);
    s->curLang[tag.length] = '\0';
}

// What is given back is read again, for each tag inside. If tags are nested deeper than this,
// invalid tags are used up, so that a text is not read as often as it has tags.
constexpr u32 max_nested_tags = 32;

u32 give_back(session* s, i32 start, u32 status, u32 nested) {
    if (status != PVZAN_INVALID_INPUT || nested <= max_nested_tags) {
        s->inPos = start;
    }
    return stop_with(s, status);
}

// Reads the tag after U+E0001 with the charset's own decode rule. It ends at the first character
// that is not a tag letter, which is delivered. If there are tags inside the tag, only letters
// before the first of them count, unless the inner one is cancelled: that is invalid, and leaves
// the letters of the inner one.
u32 read_language_tag(session* s, i32 start) {
    const rule_row* row = s->srcGroup != nullptr ? TheRule(s->srcGroup->destRule) : nullptr;
    if (row == nullptr || row->function == nullptr) {
        return stop_with(s, PVZAN_INVALID_INPUT);
    }
    const collecting_scope scope;
    tag_text outer;
    tag_text inner;
    u32 nested = 0;
    for (;;) {
        const i32 before = s->inPos;
        row->function(s);
        if (s->status == PVZAN_DECODED && s->inPos == before) {
            return give_back(s, start, PVZAN_INVALID_INPUT, nested); // the rule read nothing
        }
        if (s->status != PVZAN_DECODED) {
            // If the input ends, the tag is incomplete, like any other cut.
            return give_back(s, start,
                             s->status == PVZAN_DONE ? u32{PVZAN_INPUT_INCOMPLETE} : s->status,
                             nested);
        }
        tag_text& tag = nested != 0 ? inner : outer;
        const u32 c = s->srcCode;
        if (c == language_tag) {
            ++nested;
            inner.length = 0;
        } else if (c == cancel_tag) {
            take_language(s, tag);
            return nested != 0 ? give_back(s, start, PVZAN_INVALID_INPUT, nested)
                               : stop_with(s, PVZAN_INVALID_INPUT);
        } else if (is_tag_character(c)) {
            tag.letters[tag.length++] = static_cast<char>(c & 0xFF);
            if (tag.length == tag.letters.size()) {
                return nested != 0 ? give_back(s, start, PVZAN_INVALID_INPUT, nested)
                                   : stop_with(s, PVZAN_INVALID_INPUT);
            }
        } else {
            take_language(s, outer);
            return 1;
        }
    }
}

} // namespace

extern "C" {

u32 srcUCS4(session* s, i32 start) {
    const u32 c = s->srcCode;
    for (const basic_set* set : member_sets(s->srcGroup)) {
        if (set_holds(set, c)) {
            const bool user_defined = set->setType == PVZAN_SET_USER_DEFINED;
            const u32 ucs = user_defined ? c + user_defined_first - set->eudcStart : c;
            return deliver_character(s, set, c, c, ucs);
        }
    }
    if (c == language_tag && !collecting) {
        return read_language_tag(s, start);
    }
    if (c == language_tag || is_tag_character(c)) {
        s->status = PVZAN_DECODED; // for the collector of a tag; the session's character is not set
        return 1;
    }
    return stop_with(s, PVZAN_INVALID_INPUT);
}

// Tags are written if the target options name a language. The text's own language is written as a
// tag, the language of the options as a cancelled tag.
u32 dstUCS4(session* s, put_function putFunc) {
    if (s->baseLang[0] == '\0') {
        return 1;
    }
    if (s->curLang[0] == '\0') {
        copy_text(s->curLang, s->baseLang);
    }
    if (std::strncmp(s->outLang, s->curLang, text_bytes) == 0) {
        return 1;
    }
    const i32 before = s->outPos;
    bool done = putFunc(s, language_tag) != 0;
    if (std::strncmp(s->curLang, s->baseLang, text_bytes) == 0) {
        done = done && putFunc(s, cancel_tag) != 0;
    } else {
        for (std::size_t i = 0; done && i < text_bytes && s->curLang[i] != '\0'; ++i) {
            done = putFunc(s, tag_character_base + static_cast<u8>(s->curLang[i])) != 0;
        }
    }
    if (!done) {
        s->outPos = before;
        return stop_with(s, PVZAN_OUTPUT_FULL);
    }
    copy_text(s->outLang, s->curLang);
    return 1;
}

} // extern "C"
