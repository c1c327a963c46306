// Creating, resetting and releasing converters.
#include "cconv/convert/lifecycle.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"
#include "text/converter.h"
#include "text/directory.h"
#include "text/names.h"
#include "text/record.h"

#include <algorithm>

namespace text {

namespace {

constexpr u32 known_flags = PVZAN_LOOK_ALIKES | PVZAN_COMPOSE | PVZAN_READ_BACK |
                            PVZAN_BROWSER_LABELS | PVZAN_LEAVE_INPUT | PVZAN_COUNT_PRIVATE_USE |
                            PVZAN_OFFSETS_ALONE;

bool read_options(const pvzan_open_options* given, pvzan_open_options& how, pvzan_error* error) {
    const bool known = read_record(given, how) && (how.flags & ~known_flags) == 0 &&
                       how.from_order <= PVZAN_ORDER_LITTLE && how.to_order <= PVZAN_ORDER_LITTLE &&
                       how.mark <= PVZAN_MARK_STRIP && how.breaks <= PVZAN_BREAKS_CR &&
                       how.on_invalid <= PVZAN_HEX && how.on_missing <= PVZAN_HEX &&
                       how.on_cut <= PVZAN_HEX;
    if (!known) {
        tell(error, PVZAN_ERROR_OPTION, "an option is unknown to this version of the library");
    }
    return known;
}

bool find_named(const char* asked, u32 flags, i32 code, pvzan_name& name, charset_group*& group,
                pvzan_error* error) {
    group = resolve(asked, flags, name) ? find_charset(name.charset) : nullptr;
    if (group == nullptr) {
        if (asked != nullptr && name.charset[0] != '\0') {
            tell(error, code, "the charset directory has no definition of %s", name.shown);
        } else {
            tell(error, code, "unknown charset '%s'%s%s%s", asked != nullptr ? asked : "",
                 name.shown[0] != '\0' ? "; did you mean " : "", name.shown,
                 name.shown[0] != '\0' ? "?" : "");
        }
        return false;
    }
    return true;
}

void describe(const charset_group* group, u32 order, pvzan_name& name) {
    describe_codes(group, name);
    if (order != PVZAN_ORDER_BY_NAME) {
        name.order = order;
        name.mark = 0;
    }
}

// Loads all tables that are used, so that everything that is stored about the two charsets is based
// on the same tables.
void load_tables(const charset_group* group, bool decode, bool encode) {
    for (const basic_set* set : member_sets(group)) {
        if (set->setType != PVZAN_SET_USER_DEFINED) {
            if (decode) {
                loadTableFile(set->decodeTable);
            }
            if (encode) {
                loadTableFile(set->encodeTable);
            }
        }
    }
}

// Finds what the sets say about the source's codes.
void measure_codes(pvzan_converter& c) {
    u32 widest = 0;
    bool ascending = true;
    for (const basic_set* set : member_sets(c.work.srcGroup)) {
        ascending = ascending && set->byteNum >= widest;
        widest = std::max<u32>(widest, set->byteNum);
    }
    const bool by_sets = c.source == nullptr || c.source->read == reading::sets;
    c.needed = by_sets && !ascending ? std::min(widest, max_code_bytes) : 1;
    c.longest = by_sets ? widest : 0;
}

// Whether there are codes of a letter and a mark.
bool has_codes_of_pairs(const charset_group* group) {
    for (const basic_set* set : member_sets(group)) {
        if (set->setNo == PVZAN_SET_JIS_X_0213 || set->encodeTable->maxKey > last_scalar) {
            return true;
        }
    }
    return false;
}

// The code of a line break, which is that of ASCII in nearly all charsets.
u8 find_break(pvzan_converter& c, u8 letter) {
    constexpr u8 controls = 0x40;
    for (u32 i = 0; i < controls && !is_unicode(c.from) && c.from.unit == 1; ++i) {
        const u8 code = (letter + i) % controls;
        const reading_result found = read(c, {&code, 1, true, true});
        if (found.kind == reading_result::whole && found.c.letter == letter) {
            return code;
        }
    }
    return letter;
}

// Whether the target has the line feed of ASCII; otherwise line breaks cannot be recognised by
// their bytes.
bool writes_ascii_feed(pvzan_converter& c) {
    character back{0, 0};
    const bool has = is_unicode(c.to) || (write(c, {'\n', 0}, back) == written::done &&
                                          c.now.pending[c.now.pending_size - 1] == '\n');
    begin_text(c);
    return has;
}

// Prepares the session as the four calls would, without a language tag.
bool prepare_session(pvzan_converter& c, charset_group* from, charset_group* to) {
    session& s = c.work;
    std::memset(static_cast<void*>(&s), 0, offsetof(session, baseLang));
    s.baseLang[0] = s.outLang[0] = s.curLang[0] = '\0';
    s.source = {};
    s.target = {};
    s.target.newlineMode = c.how.breaks == PVZAN_BREAKS_LF   ? PVZAN_NEWLINE_LF
                           : c.how.breaks == PVZAN_BREAKS_CR ? PVZAN_NEWLINE_CR
                                                             : PVZAN_NEWLINE_CRLF;
    s.subst1 = {};
    s.subst2 = {};
    s.srcGroup = from;
    s.srcGroupNo = from->groupNo;
    s.srcRule = TheRule(from->destRule);
    s.dstGroup = to;
    s.dstGroupNo = to->groupNo;
    s.dstRule = TheRule(to->constRule);
    if (s.srcRule == nullptr || s.dstRule == nullptr) {
        return false;
    }
    describe(from, c.how.from_order, c.from);
    describe(to, c.how.to_order, c.to);
    s.target.dstBigEndian = c.to.order != PVZAN_ORDER_LITTLE ? 1 : 0;
    c.source = traits_of_decoder(s.srcRule->function);
    c.target = traits_of_encoder(s.dstRule->function);
    return true;
}

} // namespace

bool prepare(pvzan_converter& c, const char* from, const char* to, pvzan_error* error) {
    charset_group *source = nullptr, *target = nullptr;
    const u32 flags = c.how.flags;
    if (!find_named(from, flags, PVZAN_ERROR_UNKNOWN_FROM, c.from, source, error) ||
        !find_named(to, flags, PVZAN_ERROR_UNKNOWN_TO, c.to, target, error)) {
        return false;
    }
    const bool codes = (flags & PVZAN_READ_BACK) != 0;
    load_tables(source, true, codes);
    load_tables(target, true, true);
    if (!prepare_session(c, source, target)) {
        tell(error, c.work.srcRule == nullptr ? PVZAN_ERROR_UNKNOWN_FROM : PVZAN_ERROR_UNKNOWN_TO,
             "%s cannot be converted in this direction",
             c.work.srcRule == nullptr ? c.from.shown : c.to.shown);
        return false;
    }
    c.takes_all = is_unicode(c.to) || (c.target != nullptr && c.target->form != unicode_form::none);
    measure_codes(c);
    const bool looks_for_marks = is_unicode(c.from) && !c.takes_all;
    c.has_pairs = looks_for_marks && has_codes_of_pairs(target);
    c.composes = looks_for_marks && (flags & PVZAN_COMPOSE) != 0;
    std::memset(static_cast<void*>(c.known), 0, sizeof c.known);
    std::memset(c.endings, 0, sizeof c.endings);
    c.substitute = c.how.substitute;
    begin_text(c);
    c.lf = find_break(c, '\n');
    c.cr = find_break(c, '\r');
    c.ascii_feed = c.lf == '\n' && writes_ascii_feed(c);
    if (c.substitute != 0 && (!is_scalar(c.substitute) || !can_write(c, {c.substitute, 0}))) {
        tell(error, PVZAN_ERROR_OPTION, "%s does not have the substitute U+%04X", c.to.shown,
             c.substitute);
        return false;
    }
    return true;
}

void begin_text(pvzan_converter& c) {
    session& s = c.work;
    c.now = {};
    c.fault = {};
    // iconv(3) has no marks where the name says the byte order.
    const bool may_have_mark =
        is_unicode(c.from) && ((c.how.flags & PVZAN_LEAVE_INPUT) == 0 || c.from.mark != 0);
    c.now.now = may_have_mark ? stage::fresh : stage::inside;
    c.now.big_source = c.from.order != PVZAN_ORDER_LITTLE;
    c.now.mark_due = is_unicode(c.to) && (c.how.mark == PVZAN_MARK_ADD ||
                                          (c.how.mark == PVZAN_MARK_BY_NAME && c.to.mark != 0));
    s.source.srcBigEndian = c.now.big_source ? 1 : 0;
    s.srcShiftSet = PVZAN_SET_ISO_646_IRV;
    s.dstShiftSet = c.target != nullptr && c.target->designates ? u32{PVZAN_SET_ISO_646_IRV} : 0;
    s.dstShiftPlane = 0;
    s.outSetNo = 0;
}

} // namespace text

using namespace text;

extern "C" {

uint32_t pvzan_text_version(void) {
    return 0x010100;
}

pvzan_converter* pvzan_open(const char* from, const char* to, const pvzan_open_options* options,
                            pvzan_error* error) {
    pvzan_open_options how;
    if (!read_options(options, how, error) || !settle_directory(error)) {
        return nullptr;
    }
    auto* c = static_cast<pvzan_converter*>(ZAN_malloc(static_cast<i32>(sizeof(pvzan_converter))));
    if (c == nullptr) {
        tell(error, PVZAN_ERROR_NO_MEMORY, "not enough memory for a converter");
        return nullptr;
    }
    c->how = how;
    if (!prepare(*c, from, to, error)) {
        ZAN_free(c);
        return nullptr;
    }
    tell(error, PVZAN_ERROR_NONE, "%s", "");
    return c;
}

void pvzan_reset(pvzan_converter* converter) {
    if (converter != nullptr) {
        begin_text(*converter);
    }
}

void pvzan_close(pvzan_converter* converter) {
    ZAN_free(converter);
}

} // extern "C"
