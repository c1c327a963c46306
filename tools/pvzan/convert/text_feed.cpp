#include "tools/pvzan/convert/text_feed.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace tool {

namespace {

constexpr std::size_t output_bytes = std::size_t{192} * 1024;
constexpr std::uint64_t most_told = 20; // problems that are described, as many as are told
constexpr std::size_t most_kept = 4096; // a multiple of all units

pvzan_open_options open_options(const text_options& options, bool begins) {
    auto how = new_record<pvzan_open_options>();
    how.flags = PVZAN_COMPOSE | (options.read_back ? std::uint32_t{PVZAN_READ_BACK} : 0U) |
                (options.count ? std::uint32_t{PVZAN_COUNT_PRIVATE_USE} : 0U);
    how.mark = begins ? options.mark : std::uint32_t{PVZAN_MARK_STRIP};
    how.breaks = options.breaks;
    how.substitute = options.on_error == PVZAN_SUBSTITUTE ? options.substitute : 0;
    return how;
}

} // namespace

problem_kind kind_of(const pvzan_fault& fault) {
    switch (fault.kind) {
    case PVZAN_FAULT_MISSING: return problem_kind::unrepresentable;
    case PVZAN_FAULT_OTHER_BACK: return problem_kind::one_way;
    case PVZAN_FAULT_CUT:
    case PVZAN_FAULT_LEFT_OPEN: return problem_kind::incomplete;
    default: return problem_kind::invalid;
    }
}

pvzan_counts behind(const pvzan_counts& before, const pvzan_counts& begun, pvzan_counts part) {
    if (part.line == begun.line) {
        part.column += before.column - begun.column;
    }
    part.line += before.line - begun.line;
    part.in += before.in - begun.in;
    part.characters += before.characters - begun.characters;
    part.private_use += before.private_use - begun.private_use;
    part.composed += before.composed - begun.composed;
    return part;
}

pvzan_counts no_counts() {
    auto counts = new_record<pvzan_counts>();
    counts.line = counts.column = 1;
    return counts;
}

text_feed::text_feed(const pvzan_name& from, const pvzan_name& to, text_sinks sinks,
                     const text_options& options)
    : from_(from), to_(to), sinks_(std::move(sinks)), options_(options),
      out_(std::make_unique_for_overwrite<std::uint8_t[]>(output_bytes)) {}

bool text_feed::open(pvzan_error* error) {
    begins_ = begins_ && !written_;
    converter_ = open_converter(from_, to_, open_options(options_, begins_), error);
    fresh_ = true;
    return converter_ != nullptr;
}

bool text_feed::open_as(const text_feed& other) {
    begins_ = other.begins_;
    return open();
}

bool text_feed::change_source(const pvzan_name& from) {
    if (taken_ > 0) {
        flush(); // a letter whose mark does not follow
    }
    const pvzan_counts counts = this->counts();
    from_ = from;
    const bool opened = open();
    begin_at(counts);
    return opened;
}

// ---- Places and counts -------------------------------------------------------------------------

pvzan_counts text_feed::now() const {
    pvzan_counts counts = no_counts();
    if (converter_) {
        pvzan_count(converter_.get(), &counts);
    }
    return counts;
}

pvzan_counts text_feed::counts() const {
    return behind(before_, begun_, now());
}

void text_feed::begin_at(const pvzan_counts& counts) {
    begun_ = now();
    before_ = counts;
    taken_ = begun_.in;
    kept_.clear();
}

void text_feed::restore(const text_state& state) {
    if (pvzan_restore(converter_.get(), state.bytes.data(), state.size) != 1) {
        throw std::logic_error("the conversion of a part cannot be continued");
    }
}

void text_feed::begin_inside(const text_state& state, code_unit unit) {
    restore(state);
    unit_ = unit;
    fresh_ = false;
    begin_at(no_counts());
}

void text_feed::go_on(const text_state& state, const pvzan_counts& counts, bool failed) {
    restore(state);
    begin_at(counts);
    failed_ = failed;
}

text_state text_feed::state() const {
    text_state state;
    state.size = pvzan_save(converter_.get(), state.bytes.data(), state.bytes.size());
    return state;
}

bool text_feed::stands_as(const text_state& state) const {
    return pvzan_stands_as(converter_.get(), state.bytes.data(), state.size) == 1;
}

// ---- Feeding -----------------------------------------------------------------------------------

void text_feed::deliver() {
    if (filled_ > 0 && !failed_) {
        written_ = true;
        sinks_.output({out_.get(), filled_});
    }
    filled_ = 0;
}

void text_feed::take(bytes_view text, std::int32_t how) {
    if (fresh_ && !text.empty()) {
        unit_ = unit_of(from_, text);
        fresh_ = false;
    }
    const std::uint8_t* in = text.data();
    std::size_t left = text.size();
    for (;;) {
        std::uint8_t* end = out_.get() + filled_;
        std::size_t room = output_bytes - filled_;
        const pvzan_outcome said = pvzan_feed(converter_.get(), &in, &left, &end, &room, how);
        filled_ = static_cast<std::size_t>(end - out_.get());
        if (said == PVZAN_FEED_FAULT) {
            meet_fault(text);
        } else if (said == PVZAN_FEED_MORE_ROOM) {
            deliver();
        } else if (said == (how == PVZAN_LAST ? PVZAN_FEED_DONE : PVZAN_FEED_MORE_INPUT)) {
            break;
        } else {
            throw std::logic_error("the text cannot be converted");
        }
    }
    deliver();
    keep_for_excerpts(text);
}

// What stands for the fault goes behind what is written already. False where it cannot.
bool text_feed::answer(std::int32_t how, const std::string& text) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    std::size_t left = text.size();
    std::uint8_t* end = out_.get() + filled_;
    std::size_t room = output_bytes - filled_;
    const pvzan_outcome said = pvzan_answer(converter_.get(), how, &bytes, &left, &end, &room);
    filled_ = static_cast<std::size_t>(end - out_.get());
    return said == PVZAN_FEED_DONE;
}

bool text_feed::write_look_alike(const pvzan_fault& fault) {
    constexpr std::size_t ample = 256;
    if (!options_.similar || fault.look_alike == 0) {
        return false;
    }
    if (output_bytes - filled_ < ample) {
        deliver();
    }
    const bool written = answer(PVZAN_WRITE_UTF8, utf8_of(fault.look_alike));
    if (written && sinks_.look_alikes) {
        sinks_.look_alikes(fault.scalars[0]);
    }
    return written;
}

void text_feed::meet_fault(bytes_view text) {
    problem told;
    told.fault = new_record<pvzan_fault>();
    pvzan_fault& fault = told.fault;
    fault.size = problems_ < most_told ? sizeof fault : offsetof(pvzan_fault, why);
    pvzan_last_fault(converter_.get(), &fault);
    if (write_look_alike(fault)) {
        return;
    }
    ++problems_;
    if (options_.excerpts && problems_ <= most_told) {
        add_excerpt(told, text);
    }
    pvzan_counts place = no_counts();
    place.line = fault.line;
    place.column = fault.column;
    place.in = fault.offset;
    place = behind(before_, begun_, place);
    fault.line = place.line;
    fault.column = place.column;
    fault.offset = place.in;
    const bool stops = options_.on_error == PVZAN_TELL || problems_ > options_.most_errors;
    if (!answer(stops ? std::int32_t{PVZAN_DROP} : static_cast<std::int32_t>(options_.on_error))) {
        throw std::logic_error("nothing can be written in place of a problem");
    }
    if (stops && !failed_) {
        flush();
        failed_ = true;
    }
    sinks_.problems(told);
}

// What is written ends like a text, whatever follows.
void text_feed::flush() {
    const std::uint8_t* in = nullptr;
    std::size_t left = 0;
    pvzan_outcome said = PVZAN_FEED_MORE_ROOM;
    while (said == PVZAN_FEED_MORE_ROOM) {
        std::uint8_t* end = out_.get() + filled_;
        std::size_t room = output_bytes - filled_;
        said = pvzan_feed(converter_.get(), &in, &left, &end, &room, PVZAN_FLUSH);
        filled_ = static_cast<std::size_t>(end - out_.get());
        deliver();
    }
}

// ---- Excerpts ----------------------------------------------------------------------------------

void text_feed::keep_for_excerpts(bytes_view text) {
    taken_ += text.size();
    if (options_.excerpts) {
        kept_.insert(kept_.end(), text.begin(), text.end());
        const std::size_t surplus = kept_.size() - std::min(kept_.size(), most_kept);
        kept_.erase(kept_.begin(), kept_.begin() + static_cast<std::ptrdiff_t>(surplus));
    }
}

// The line of the fault, read once more, from what is there of it.
void text_feed::add_excerpt(problem& told, bytes_view text) const {
    constexpr std::size_t most_characters = 21;
    const std::uint64_t begin = taken_ - kept_.size();
    if (told.fault.offset < begin) {
        return;
    }
    std::vector<std::uint8_t> around = kept_;
    around.insert(around.end(), text.begin(), text.end());
    const auto at = static_cast<std::size_t>(told.fault.offset - begin);
    around.resize(std::min(around.size(), at + most_kept));
    // What does not begin where the text does begins where a line does, or at least a unit.
    std::size_t from = at - std::min(at, most_kept);
    if (begin + from > 0) {
        from = std::min(from + (begin + from) % unit_.bytes, at);
        from += behind_last_line_feed(bytes_view(around).subspan(from, at - from), unit_);
    }
    const auto read = [&](std::size_t end, std::int32_t how) {
        std::u32string characters;
        read_characters(bytes_view(around).subspan(from, end - from), from_,
                        unit_.little_endian ? PVZAN_ORDER_LITTLE : PVZAN_ORDER_BY_NAME, how,
                        characters, [&](const pvzan_fault&) {
                            characters += no_character;
                            return true;
                        });
        return characters;
    };
    const bool ends = kind_of(told.fault) == problem_kind::incomplete;
    const std::u32string before = read(at, PVZAN_PART);
    const std::u32string all = read(around.size(), ends ? PVZAN_LAST : PVZAN_PART);
    constexpr std::u32string_view breaks = U"\r\n";
    std::u32string_view ahead(before);
    ahead.remove_prefix(before.find_last_of(breaks) + 1);
    std::u32string_view behind(all);
    behind.remove_prefix(std::min(before.size(), behind.size()));
    behind = behind.substr(0, std::min(behind.find_first_of(breaks), most_characters));
    told.before = excerpt_of(ahead);
    told.after = excerpt_of(behind).text;
}

} // namespace tool
