#include "tools/pvzan/directory/charset.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tool {

bool find_charset(const std::string& name, pvzan_name& meaning) {
    meaning = new_record<pvzan_name>();
    return pvzan_resolve(name.c_str(), 0, &meaning) == 1;
}

pvzan_name charset_of(const std::string& name) {
    pvzan_name meaning;
    find_charset(name, meaning);
    return meaning;
}

std::string name_of_label(const std::string& label) {
    auto meaning = new_record<pvzan_name>();
    return pvzan_resolve(label.c_str(), PVZAN_BROWSER_LABELS, &meaning) == 1 ? meaning.shown
                                                                             : label;
}

std::vector<std::string> split_names(std::string_view names, char between) {
    std::vector<std::string> list;
    for (std::size_t at = 0, end = 0; at < names.size(); at = end + 1) {
        end = std::min(names.find(between, at), names.size());
        if (end > at) {
            list.emplace_back(names.substr(at, end - at));
        }
    }
    return list;
}

std::string fold_name(std::string_view name) {
    std::string folded(name);
    std::ranges::transform(folded, folded.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return folded;
}

bool same_charset(const pvzan_name& one, const pvzan_name& other) {
    return std::string_view(one.charset) == other.charset && one.order == other.order;
}

std::vector<pvzan_name> all_charsets() {
    std::vector<pvzan_name> all;
    auto charset = new_record<pvzan_name>();
    while (pvzan_each_charset(all.size(), &charset) == 1) {
        all.push_back(charset);
    }
    return all;
}

converter open_converter(const pvzan_name& from, const pvzan_name& to,
                         const pvzan_open_options& options, pvzan_error* error) {
    return converter(pvzan_open(from.shown, to.shown, &options, error));
}

converter open_converter(const pvzan_name& from, const pvzan_name& to) {
    return open_converter(from, to, new_record<pvzan_open_options>());
}

bool passes(pvzan_converter& reads, bytes_view text, std::int32_t how) {
    std::array<std::uint8_t, 16384> out;
    const std::uint8_t* in = text.data();
    std::size_t left = text.size();
    pvzan_outcome said = PVZAN_FEED_MORE_ROOM;
    while (said == PVZAN_FEED_MORE_ROOM) {
        std::uint8_t* end = out.data();
        std::size_t room = out.size();
        said = pvzan_feed(&reads, &in, &left, &end, &room, how);
    }
    return said == PVZAN_FEED_MORE_INPUT || said == PVZAN_FEED_DONE;
}

bool read_characters(bytes_view text, const pvzan_name& from, std::uint32_t order, std::int32_t how,
                     std::u32string& into, const std::function<bool(const pvzan_fault&)>& told) {
    constexpr std::size_t unit = 4;
    auto options = new_record<pvzan_open_options>();
    options.from_order = order;
    const converter reads = open_converter(from, charset_of("ucs-4be"), options);
    std::array<std::uint8_t, 4096 * unit> out;
    const std::uint8_t* in = text.data();
    std::size_t left = text.size();
    for (bool more = reads != nullptr; more;) {
        std::uint8_t* end = out.data();
        std::size_t room = out.size();
        const pvzan_outcome said = pvzan_feed(reads.get(), &in, &left, &end, &room, how);
        for (const std::uint8_t* c = out.data(); c < end; c += unit) {
            into += static_cast<char32_t>(c[1] << 16 | c[2] << 8 | c[3]);
        }
        more = said == PVZAN_FEED_MORE_ROOM;
        if (said == PVZAN_FEED_FAULT) {
            auto fault = new_record<pvzan_fault>();
            pvzan_last_fault(reads.get(), &fault);
            more = told(fault);
            pvzan_answer(reads.get(), PVZAN_DROP, nullptr, nullptr, nullptr, nullptr);
        }
    }
    return reads != nullptr;
}

} // namespace tool
