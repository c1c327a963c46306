#include "cconv/rulefunc/strict.h"

#include "cconv/engine/step.h"
#include "cconv/rulefunc/rules.h"

namespace {

// Saves what a conversion changes in a session, except its language tags, which are not used here.
class kept_session {
public:
    explicit kept_session(session* s)
        : s_(s), source_(s->source), big_target_(s->target.dstBigEndian),
          newlines_(s->target.convertNewline) {
        std::memcpy(head_, s, sizeof head_);
    }
    ~kept_session() {
        std::memcpy(reinterpret_cast<void*>(s_), head_, sizeof head_);
        s_->source = source_;
        s_->target.dstBigEndian = big_target_;
        s_->target.convertNewline = newlines_;
    }
    kept_session(const kept_session&) = delete;
    kept_session& operator=(const kept_session&) = delete;

private:
    session* s_;
    source_options source_;
    u32 big_target_, newlines_;
    u8 head_[offsetof(session, baseLang)];
};

} // namespace

bool read_character(session* s, character& c) {
    if (s->ucsCode == 0) {
        derive_unicode(s);
    }
    c = {s->ucsCode, s->outCode2};
    if (c.letter == 0) { // NUL, or a control code without a mapping
        c.letter = s->setCode;
        return s->setCode == 0 || IsControlCode(s->setCode) != 0;
    }
    return is_scalar(c.letter);
}

void put_character(session* s, const character& c) {
    constexpr u32 no_set = ~0U;
    u32 code = c.letter;
    // Another set that has the letter alone may come before JIS X 0213, which has both as one code.
    const bool both = c.mark != 0 && ConvJISX0213CombiningFromUCS(c.letter, c.mark, &code) != 0;
    s->charSetNo = both ? u32{PVZAN_SET_JIS_X_0213} : no_set;
    s->charSetType = PVZAN_SET_BASE;
    s->srcCode = c.letter;
    s->setCode = code;
    s->ucsCode = c.letter;
    s->outCode = 0;
    s->outBytes = 0;
    s->outDone = 0;
    s->outCode2 = c.mark;
    s->status = PVZAN_DECODED;
}

character read_back(session* s, std::span<const u8> written, u32 set) {
    const kept_session kept(s);
    s->srcGroup = s->dstGroup;
    s->srcGroupNo = s->dstGroupNo;
    s->srcRule = TheRule(s->dstGroup->destRule);
    s->source.srcBigEndian = s->target.dstBigEndian;
    s->srcShiftSet = set;
    s->inBuf = written.data();
    s->inPos = 0;
    s->inLen = static_cast<i32>(written.size());
    character whole = no_character;
    for (u32 count = 0; s->srcRule != nullptr && s->inPos < s->inLen; ++count) {
        character c{0, 0};
        s->status = PVZAN_WRITTEN;
        decode_step(s);
        const bool first = count == 0, behind = count == 1 && whole.mark == 0;
        if (s->status != PVZAN_DECODED || !read_character(s, c) || !(first || behind) ||
            (behind && c.mark != 0)) {
            return no_character;
        }
        whole = first ? c : character{whole.letter, c.letter};
    }
    return whole;
}

std::size_t spell_again(session* s, const character& c, std::span<u8> out) {
    const kept_session kept(s);
    s->dstGroup = s->srcGroup;
    s->dstGroupNo = s->srcGroupNo;
    s->dstRule = TheRule(s->srcGroup->constRule);
    s->target.dstBigEndian = s->source.srcBigEndian;
    s->target.convertNewline = 0;
    s->dstShiftSet = 0;
    s->dstShiftPlane = 0;
    s->outBuf = out.data();
    s->outPos = 0;
    s->outLen = static_cast<i32>(out.size());
    put_character(s, c);
    if (s->dstRule == nullptr) {
        return 0;
    }
    encode_step(s);
    return s->status == PVZAN_WRITTEN ? static_cast<std::size_t>(s->outPos) : 0;
}
