// pvzan_guess and its kin.
#include "platform/platform.h"
#include "text/directory.h"
#include "text/guess/stages.h"
#include "text/names.h"
#include "text/record.h"

#include <algorithm>
#include <new>

namespace text {

namespace {

void add_candidate(pvzan_guesser& g, const charset_row& row, const pvzan_name& name) {
    const bool met = std::any_of(g.candidates, g.candidates + g.count, [&](const candidate& c) {
        return std::strcmp(c.name.charset, name.charset) == 0 && c.name.order == name.order;
    });
    if (met || g.count == most_candidates) {
        return;
    }
    candidate& c = g.candidates[g.count++];
    c.row = row;
    c.name = name;
    if (row.codes == structure::single_byte) {
        read_high(row, c.high);
    }
}

bool resolve_row(const charset_row& row, pvzan_name& name) {
    char text[64] = "";
    std::memcpy(text, row.name.data(), std::min(row.name.size(), sizeof text - 1));
    return resolve(text, 0, name) && name.exact != 0;
}

// What the names mean that the guess is to choose from.
struct chosen {
    static constexpr u32 most = 32;
    pvzan_name names[most];
    u32 count = 0;

    explicit chosen(const char* list) {
        while (*list != '\0' && count < most) {
            char name[64];
            const std::size_t length = std::strcspn(list, ",");
            const std::size_t kept = std::min(length, sizeof name - 1);
            std::memcpy(name, list, kept);
            name[kept] = '\0';
            count += resolve(name, 0, names[count]) ? 1U : 0U;
            list += length + (list[length] != '\0' ? 1 : 0);
        }
    }
    [[nodiscard]] bool has(const pvzan_name& name) const {
        return std::any_of(names, names + count, [&](const pvzan_name& one) {
            const bool either_order = one.mark == 1;
            return std::strcmp(one.charset, name.charset) == 0 &&
                   (either_order || one.order == name.order);
        });
    }
};

// Those that are named, or all, in the order of the list.
void add_candidates(pvzan_guesser& g, const chosen& among) {
    charset_row row;
    pvzan_name name;
    for (std::string_view list = charset_list; take_row(list, row);) {
        if (resolve_row(row, name) && (!g.named || among.has(name))) {
            add_candidate(g, row, name);
        }
    }
    for (const pvzan_name& other : std::span(among.names, among.count)) {
        if (other.mark != 1) {
            add_candidate(g, {}, other);
        }
    }
}

} // namespace

} // namespace text

using namespace text;

extern "C" {

pvzan_guesser* pvzan_guess_open(const char* among, const char* language) {
    if (!settle_directory(nullptr)) {
        return nullptr;
    }
    void* memory = ZAN_malloc(static_cast<i32>(sizeof(pvzan_guesser)));
    constexpr std::size_t most_evidence = evidence_room + late_room;
    constexpr std::size_t readings = 2 * most_evidence * sizeof(seen);
    void* room = ZAN_malloc(static_cast<i32>(readings + head_room + batch_room + most_evidence));
    if (memory == nullptr || room == nullptr) {
        ZAN_free(memory);
        ZAN_free(room);
        return nullptr;
    }
    auto* g = ::new (memory) pvzan_guesser();
    g->reading = static_cast<seen*>(room);
    g->head = static_cast<u8*>(room) + readings;
    g->batch = g->head + head_room;
    g->evidence = g->batch + batch_room;
    if (language != nullptr) {
        read_language(language, g->language);
    } else {
        user_language(g->language);
    }
    g->named = among != nullptr && *among != '\0';
    add_candidates(*g, chosen(g->named ? among : ""));
    return g;
}

int32_t pvzan_guess_feed(pvzan_guesser* g, const uint8_t* bytes, size_t size) {
    if (g == nullptr || (bytes == nullptr && size > 0)) {
        return 0;
    }
    std::span<const u8> rest(bytes, size);
    if (g->now == progress::gathering) {
        const std::size_t taken = std::min(rest.size(), head_room - g->head_size);
        if (taken > 0) {
            std::memcpy(g->head + g->head_size, rest.data(), taken);
        }
        g->head_size += taken;
        rest = rest.subspan(taken);
        if (g->head_size < head_room) {
            return 1;
        }
        begin(*g, false);
    }
    if (g->now == progress::words) {
        take_words(*g, rest);
    } else if (g->now == progress::whole) {
        feed_all(*g, rest, PVZAN_PART);
        g->offset += rest.size();
    }
    return g->now == progress::done ? 0 : 1;
}

size_t pvzan_guess_end(pvzan_guesser* g, int32_t complete, pvzan_guess_result* result,
                       pvzan_candidate* candidates, size_t most) {
    if (g == nullptr || (candidates != nullptr && most > 0 && !is_record(candidates))) {
        return 0;
    }
    if (!g->decided) {
        if (g->now == progress::gathering) {
            begin(*g, complete != 0);
        }
        decide(*g, complete != 0);
        g->decided = true;
    }
    const decision& answer = g->answer;
    if (is_record(result)) {
        pvzan_guess_result told = {};
        told.verdict = answer.verdict;
        told.mark = g->marked ? 1 : 0;
        told.doubt = answer.doubt;
        copy_text(told.why, answer.why);
        fill_record(*result, told);
    }
    auto* at = reinterpret_cast<u8*>(candidates);
    const u32 stride = at != nullptr && most > 0 ? candidates->size : 0;
    for (std::size_t i = 0; i < std::min<std::size_t>(most, answer.shown); ++i, at += stride) {
        auto* candidate = reinterpret_cast<pvzan_candidate*>(at);
        candidate->size = stride;
        fill_record(*candidate, answer.candidates[i]);
    }
    return answer.shown;
}

void pvzan_guess_close(pvzan_guesser* g) {
    if (g == nullptr) {
        return;
    }
    for (candidate& c : std::span(g->candidates, g->count)) {
        pvzan_close(c.reads);
    }
    ZAN_free(g->reading);
    g->~pvzan_guesser();
    ZAN_free(g);
}

int32_t pvzan_guess(const uint8_t* bytes, size_t size, int32_t complete, pvzan_name* likeliest) {
    pvzan_guesser* g = pvzan_guess_open(nullptr, nullptr);
    pvzan_guess_result result = {};
    result.size = sizeof result;
    pvzan_candidate first = {};
    first.size = sizeof first;
    pvzan_guess_feed(g, bytes, size);
    const std::size_t count = pvzan_guess_end(g, complete, &result, &first, 1);
    pvzan_guess_close(g);
    if (count > 0 && is_record(likeliest)) {
        fill_record(*likeliest, first.name);
    }
    return static_cast<int32_t>(result.verdict);
}

} // extern "C"
