// iconv_open, iconv and iconv_close on top of the library, for programs that know no other
// converter: preloaded, it gives them the charsets that their C library lacks. The next library's
// iconv_open is called first, and what it opens is handled by it. PVZAN_ICONV=all reverses the
// order, for tests.
#include "pvzan_text.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <iconv.h>
#include <langinfo.h>
#include <pthread.h>

namespace {

constexpr auto failed = static_cast<size_t>(-1);
constexpr uint32_t machine_order =
    std::endian::native == std::endian::little ? PVZAN_ORDER_LITTLE : PVZAN_ORDER_BIG;

const auto none = reinterpret_cast<iconv_t>(-1);

// ---- The next library that has the three calls -------------------------------------------------

struct next_library {
    decltype(&::iconv_open) open;
    decltype(&::iconv) convert;
    decltype(&::iconv_close) close;
    bool asked_last;
};
next_library found_next;
pthread_once_t searched = PTHREAD_ONCE_INIT;

template <typename function>
void find_call(function& call, const char* name) {
    call = reinterpret_cast<function>(::dlsym(RTLD_NEXT, name));
}

void search_next() {
    find_call(found_next.open, "iconv_open");
    find_call(found_next.convert, "iconv");
    find_call(found_next.close, "iconv_close");
    if (found_next.convert == nullptr || found_next.close == nullptr) {
        found_next.open = nullptr; // either all three or none
    }
    const char* const mode = std::getenv("PVZAN_ICONV");
    found_next.asked_last = mode != nullptr && std::strcmp(mode, "all") == 0;
}

const next_library& next() {
    ::pthread_once(&searched, search_next);
    return found_next;
}

// ---- Names -------------------------------------------------------------------------------------

// One side of a conversion, as the caller names it.
struct end_point {
    char name[128];     // in upper case
    uint32_t order;     // PVZAN_ORDER_...
    uint32_t mark_size; // of a mark that shows the byte order; 0: none
    bool transliterate, ignore, discard;
};

// Copies a name in upper case without characters that do not matter; false if it is too long.
bool read_word(const char* given, char (&word)[128]) {
    size_t size = 0;
    for (; *given != '\0' && size < sizeof word; ++given) {
        const bool lower = *given >= 'a' && *given <= 'z';
        const char c = lower ? static_cast<char>(*given - 'a' + 'A') : *given;
        if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || std::strchr("_-/.,:", c)) {
            word[size++] = c;
        }
    }
    word[std::min(size, sizeof word - 1)] = '\0';
    return size < sizeof word;
}

// NAME, NAME//SUFFIX, NAME//SUFFIX,SUFFIX and the like: the name ends at the second slash. An empty
// name means the locale's charset; unknown suffixes are ignored.
bool read_name(const char* given, end_point& end) {
    end = {};
    if (!read_word(given, end.name)) {
        return false;
    }
    char* slash = std::strchr(end.name, '/');
    slash = slash != nullptr ? std::strchr(slash + 1, '/') : nullptr;
    if (slash != nullptr) {
        char* rest = nullptr;
        for (char* suffix = ::strtok_r(slash, "/,", &rest); suffix != nullptr;
             suffix = ::strtok_r(nullptr, "/,", &rest)) {
            end.transliterate = end.transliterate || std::strcmp(suffix, "TRANSLIT") == 0;
            end.ignore = end.ignore || std::strcmp(suffix, "IGNORE") == 0;
            end.discard = end.discard || std::strcmp(suffix, "NON_IDENTICAL_DISCARD") == 0;
        }
        slash[slash[-1] == '/' ? -1 : 0] = '\0';
    }
    return end.name[0] != '\0' || read_word(::nl_langinfo(CODESET), end.name);
}

// Unicode names without a byte order mean the machine's order here. UTF-16 and UTF-32 have a mark,
// UCS-2 and UCS-4 do not, and UCS-4 is always big-endian.
void settle_order(end_point& end) {
    const bool is_unicode = std::strcmp(end.name, "UNICODE") == 0;
    if (std::strcmp(end.name, "WCHAR_T") == 0) {
        std::strcpy(end.name, machine_order == PVZAN_ORDER_LITTLE ? "UCS-4LE" : "UCS-4BE");
    } else if (is_unicode) {
        std::strcpy(end.name, "UCS-2");
    }
    pvzan_name meaning = {};
    meaning.size = sizeof meaning;
    if (pvzan_resolve(end.name, 0, &meaning) == 0 || meaning.mark != 1) {
        return;
    }
    const bool is_ucs = meaning.kind == PVZAN_KIND_UCS_2 || std::strstr(end.name, "UCS") != nullptr;
    end.mark_size = is_unicode || !is_ucs ? meaning.unit : 0;
    end.order =
        is_ucs && meaning.kind == PVZAN_KIND_UCS_4 ? uint32_t{PVZAN_ORDER_BIG} : machine_order;
}

// ---- Descriptors -------------------------------------------------------------------------------

// What an iconv_t points to. That of another library is stored and never examined.
struct descriptor {
    iconv_t foreign;
    pvzan_converter* ours; // null: it belongs to the other library
    uint32_t mark_size;    // of the mark that shows the source's byte order; 0: none
    bool mark_due;         // the text has not begun yet
    bool skip_invalid;
};

bool open_ours(const char* to, const char* from, descriptor& d) {
    end_point target, source;
    if (!read_name(to, target) || !read_name(from, source)) {
        errno = EINVAL;
        return false;
    }
    settle_order(target);
    settle_order(source);
    pvzan_open_options how = {};
    how.size = sizeof how;
    how.flags = PVZAN_LEAVE_INPUT | PVZAN_OFFSETS_ALONE;
    how.from_order = source.mark_size != 0 ? 0 : source.order;
    how.to_order = target.order;
    how.mark = target.mark_size != 0 ? PVZAN_MARK_ADD : PVZAN_MARK_BY_NAME;
    if (target.transliterate) {
        how.flags |= PVZAN_LOOK_ALIKES;
        how.on_missing = PVZAN_SUBSTITUTE;
        how.substitute = '?';
    } else if (target.ignore || target.discard) {
        how.on_missing = PVZAN_DROP;
    }
    d.skip_invalid = target.ignore;
    d.mark_size = source.mark_size;
    d.mark_due = d.mark_size != 0;
    pvzan_error error = {};
    error.size = sizeof error;
    d.ours = pvzan_open(source.name, target.name, &how, &error);
    errno = error.code == PVZAN_ERROR_NO_MEMORY ? ENOMEM : EINVAL;
    return d.ours != nullptr;
}

bool open_foreign(const char* to, const char* from, descriptor& d) {
    errno = EINVAL;
    d.foreign = next().open != nullptr ? next().open(to, from) : none;
    return d.foreign != none;
}

uint64_t other_characters(const descriptor& d) {
    pvzan_counts counts = {};
    counts.size = sizeof counts;
    pvzan_count(d.ours, &counts);
    return counts.look_alikes + counts.faults;
}

void begin_text(descriptor& d) {
    pvzan_reset(d.ours);
    d.mark_due = d.mark_size != 0;
}

// Text without a mark is treated as if it had that of the machine. False if it is too short to
// decide.
bool settle_mark(descriptor& d, const uint8_t* in, size_t left) {
    static constexpr uint8_t marks[2][4] = {{0, 0, 0xFE, 0xFF}, {0xFF, 0xFE, 0, 0}};
    if (!d.mark_due || left < d.mark_size) {
        return !d.mark_due;
    }
    d.mark_due = false;
    const uint8_t *const big = marks[0] + sizeof marks[0] - d.mark_size, *const little = marks[1];
    if (std::memcmp(in, big, d.mark_size) != 0 && std::memcmp(in, little, d.mark_size) != 0) {
        const uint8_t* mark = machine_order == PVZAN_ORDER_LITTLE ? little : big;
        size_t size = d.mark_size, room = 0;
        uint8_t* out = nullptr;
        pvzan_feed(d.ours, &mark, &size, &out, &room, PVZAN_PART);
    }
    return true;
}

// Skips invalid bytes if the caller wants that.
pvzan_outcome feed(descriptor& d, const uint8_t*& in, size_t& left, uint8_t*& out, size_t& room,
                   int how) {
    for (;;) {
        const pvzan_outcome said = pvzan_feed(d.ours, &in, &left, &out, &room, how);
        if (said != PVZAN_FEED_FAULT || !d.skip_invalid || left == 0) {
            return said;
        }
        pvzan_fault fault = {};
        fault.size = offsetof(pvzan_fault, why); // no words are needed
        pvzan_last_fault(d.ours, &fault);
        const size_t length = std::clamp<size_t>(fault.length, 1, left);
        in += length;
        left -= length;
    }
}

size_t convert(descriptor& d, char** in, size_t* left, char** out, size_t* room) {
    const bool ends = in == nullptr || *in == nullptr;
    if (ends && (out == nullptr || *out == nullptr)) {
        begin_text(d);
        return 0;
    }
    const int saved = errno;
    const uint64_t before = other_characters(d);
    const auto* from = ends ? nullptr : reinterpret_cast<const uint8_t*>(*in);
    auto* to = out == nullptr ? nullptr : reinterpret_cast<uint8_t*>(*out);
    size_t size = ends ? 0 : *left, space = to == nullptr ? 0 : *room;
    const pvzan_outcome said = ends || settle_mark(d, from, size)
                                   ? feed(d, from, size, to, space, ends ? PVZAN_FLUSH : PVZAN_PART)
                                   : PVZAN_FEED_MORE_INPUT;
    if (!ends) {
        *in += *left - size;
        *left = size;
    }
    if (to != nullptr) {
        *out = reinterpret_cast<char*>(to);
        *room = space;
    }
    if (said == PVZAN_FEED_MORE_ROOM || said == PVZAN_FEED_FAULT || size > 0) {
        errno = said == PVZAN_FEED_MORE_ROOM ? E2BIG : said == PVZAN_FEED_FAULT ? EILSEQ : EINVAL;
        return failed;
    }
    const uint64_t count = other_characters(d) - before;
    if (ends) {
        begin_text(d);
    }
    errno = saved;
    return static_cast<size_t>(count);
}

descriptor* descriptor_of(iconv_t cd) {
    if (cd != nullptr && cd != none) {
        return static_cast<descriptor*>(cd);
    }
    errno = EBADF;
    return nullptr;
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

iconv_t iconv_open(const char* to, const char* from) {
    const int saved = errno;
    auto* d = static_cast<descriptor*>(std::calloc(1, sizeof(descriptor)));
    if (d == nullptr) {
        return none;
    }
    const bool ours_first = next().asked_last;
    const bool opened = (ours_first ? open_ours : open_foreign)(to, from, *d) ||
                        (errno == EINVAL && (ours_first ? open_foreign : open_ours)(to, from, *d));
    const int code = opened ? saved : errno;
    if (!opened) {
        std::free(d);
    }
    errno = code;
    return opened ? d : none;
}

size_t iconv(iconv_t cd, char** in, size_t* left, char** out, size_t* room) {
    descriptor* const d = descriptor_of(cd);
    return d == nullptr         ? failed
           : d->ours == nullptr ? next().convert(d->foreign, in, left, out, room)
                                : convert(*d, in, left, out, room);
}

int iconv_close(iconv_t cd) {
    descriptor* const d = descriptor_of(cd);
    const int result = d == nullptr ? -1 : d->ours == nullptr ? next().close(d->foreign) : 0;
    if (d != nullptr) {
        pvzan_close(d->ours);
        std::free(d);
    }
    return result;
}

} // extern "C"
#pragma GCC visibility pop
