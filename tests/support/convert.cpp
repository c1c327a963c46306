#include "tests/support/convert.h"

#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace test {

pvzan_target_options conversion::big_endian_target() {
    pvzan_target_options options{};
    options.dstBigEndian = 1;
    return options;
}

guarded_buffer::guarded_buffer(std::size_t size, bool at_end) : size_(size) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t usable = (size + page - 1) / page * page;
    mapped_ = usable + 2 * page;
    pages_ = ::mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages_ == MAP_FAILED) {
        throw std::bad_alloc();
    }
    auto* const first = static_cast<std::uint8_t*>(pages_) + page;
    ::mprotect(first, usable, PROT_READ | PROT_WRITE);
    data_ = at_end ? first + usable - size : first;
}

guarded_buffer::~guarded_buffer() {
    ::munmap(pages_, mapped_);
}

session_owner open_session(const conversion& c) {
    use_shipped_charsets();
    auto s = std::make_unique<pvzan_session>();
    EXPECT_EQ(cconvInitConvert(s.get(), &c.target, c.to), 0U) << c.to;
    EXPECT_EQ(cconvChgCharset(s.get(), &c.source, c.from), 0U) << c.from;
    return s;
}

session_owner open(const char* from, const char* to) {
    return open_session({.from = from, .to = to});
}

void give_input(pvzan_session& s, std::string_view input) {
    s.inBuf = bytes_of(input).data();
    s.inPos = 0;
    s.inLen = static_cast<std::int32_t>(input.size());
}

void give_output(pvzan_session& s, std::span<std::uint8_t> output) {
    s.outBuf = output.data();
    s.outPos = 0;
    s.outLen = static_cast<std::int32_t>(output.size());
}

namespace {

// A conversion under way: what a careful caller keeps.
struct driver {
    pvzan_session& s;
    const guarded_buffer& out;
    outcome result{};
    std::string pending{};                    // input not used up yet
    std::size_t consumed = 0;                 // input used up before pending
    std::optional<std::size_t> reported_at{}; // a fault that perhaps was not stepped over
    bool stopped_before = false;              // the call before stopped for room without moving

    [[nodiscard]] std::size_t position() const {
        return consumed + static_cast<std::size_t>(s.inPos);
    }

    void take_output() {
        result.bytes += written(s);
        s.outPos = 0;
    }

    // False when a full output makes no progress any more.
    bool make_room(std::int32_t in_before) {
        const bool moved = s.outPos > 0 || s.inPos > in_before;
        take_output();
        if (!moved && stopped_before) {
            result.stuck = true;
            return false;
        }
        stopped_before = !moved;
        return true;
    }

    bool feed(std::string_view piece) {
        pending += piece;
        const guarded_buffer input(pending.size(), consumed % 2 == 0);
        std::ranges::copy(pending, input.data());
        give_input(s, text_of({input.data(), input.size()}));
        for (;;) {
            const std::int32_t before = s.inPos;
            const std::uint32_t status = cconvConvert(&s);
            EXPECT_EQ(status, s.status);
            if (status == PVZAN_DONE || status == PVZAN_INPUT_INCOMPLETE) {
                break;
            }
            if (status == PVZAN_OUTPUT_FULL) {
                if (!make_room(before)) {
                    return false;
                }
                continue;
            }
            stopped_before = false;
            const bool invalid = status == PVZAN_INVALID_INPUT;
            if (invalid && s.inPos == before) {
                // The rule leaves stepping over the byte to us. Behind other characters it has
                // reported the same byte before, in the call that converted those.
                if (reported_at == position()) {
                    result.faults.pop_back();
                }
                ++s.inPos;
                reported_at.reset();
            } else {
                reported_at = invalid ? std::optional(position()) : std::nullopt;
            }
            result.faults.push_back({status, position()});
            const bool ends = result.faults.size() <= 5 * (position() + pending.size() + 8);
            EXPECT_TRUE(ends) << "without an end: status " << status;
            if ((status != PVZAN_INVALID_INPUT && status != PVZAN_UNREPRESENTABLE) || !ends) {
                return false;
            }
        }
        pending.erase(0, static_cast<std::size_t>(s.inPos));
        consumed += static_cast<std::size_t>(s.inPos);
        return true;
    }

    void close() {
        while (cconvTermConvert(&s) == PVZAN_OUTPUT_FULL) {
            if (!make_room(s.inPos)) {
                return;
            }
        }
        take_output();
        result.unread = pending.size();
        result.in_count = s.inCount;
        result.out_count = s.outCount;
    }
};

std::string describe(const outcome& o) {
    std::string text = "  bytes: " + to_hex(o.bytes) + "\n  faults:";
    for (const fault& f : o.faults) {
        text += " " + std::to_string(f.status) + "@" + std::to_string(f.position);
    }
    return text + "\n  unread: " + std::to_string(o.unread) + (o.stuck ? " (stuck)" : "");
}

bool same_text(const outcome& a, const outcome& b) {
    return a.bytes == b.bytes && a.faults == b.faults && a.unread == b.unread && a.stuck == b.stuck;
}

} // namespace

outcome run(const conversion& c, const std::vector<std::string_view>& pieces,
            std::size_t capacity) {
    const auto s = open_session(c);
    const guarded_buffer out(capacity, pieces.size() % 2 == 0);
    give_output(*s, {out.data(), capacity});
    driver d{*s, out};
    for (const std::string_view piece : pieces) {
        if (!d.feed(piece)) {
            return d.result;
        }
    }
    d.close();
    return d.result;
}

void expect_conversion(const conversion& c) {
    outcome expected;
    expected.bytes = c.expected;
    expected.faults = c.faults;
    expected.unread = c.unread;
    const std::string_view input = c.input;
    const std::size_t plenty = c.expected.size() + c.input.size() * 8 + 64;
    const auto context = [&](const outcome& got) {
        return std::string(c.from) + " -> " + c.to + ", input " + to_hex(input) + "\n expected\n" +
               describe(expected) + "\n got\n" + describe(got);
    };

    const outcome whole = run(c, {input}, plenty);
    ASSERT_TRUE(same_text(whole, expected)) << context(whole);

    for (std::size_t cut = 0; cut <= input.size(); ++cut) {
        if (std::ranges::find(c.other_at, cut) != c.other_at.end()) {
            continue;
        }
        const std::string_view first = input.substr(0, cut), second = input.substr(cut);
        for (const auto& pieces :
             {std::vector{first, second}, std::vector{first, std::string_view(), second}}) {
            const outcome got = run(c, pieces, plenty);
            ASSERT_TRUE(same_text(got, expected) && got.in_count == whole.in_count)
                << "cut at " << cut << ": " << context(got);
        }
    }
    const std::size_t most =
        std::min(c.expected.size() + 1, std::max<std::size_t>(40, c.enough_room));
    bool room = false; // from the first buffer that does, all do
    for (std::size_t capacity = 0; capacity <= most; ++capacity) {
        const outcome got = run(c, {input}, capacity);
        if (got.stuck && !room && capacity < c.enough_room &&
            (c.least_room == 0 || capacity < c.least_room)) {
            ASSERT_TRUE(c.expected.starts_with(got.bytes)) << context(got);
            continue;
        }
        room = true;
        ASSERT_GE(capacity, c.least_room) << "should be too small: " << context(got);
        ASSERT_TRUE(same_text(got, expected) && got.in_count == whole.in_count)
            << "capacity " << capacity << ": " << context(got);
    }
}

std::optional<std::string> character_converter::operator()(std::string_view input, bool close) {
    pvzan_session& s = *session_;
    std::uint8_t output[64];
    give_input(s, input);
    give_output(s, output);
    s.status = s.inCount = s.outSetNo = s.outCode2 = 0;
    s.srcShiftSet = s.dstShiftSet = s.dstShiftPlane = 0;
    if (cconvConvert(&s) != PVZAN_DONE || s.inPos != s.inLen || s.inCount != 1 ||
        (close && cconvTermConvert(&s) != PVZAN_DONE)) {
        return std::nullopt;
    }
    return written(s);
}

std::u32string random_text(std::mt19937& random, std::size_t length, unsigned run_length) {
    constexpr std::pair<char32_t, unsigned> blocks[] = {
        {0x20, 0x5F},    {0x20, 0x5F},    {0x20, 0x5F},     {0x20, 0x5F},      {0x3041, 0x56},
        {0x30A1, 0x5A},  {0x4E00, 0x100}, {0x4E00, 0x2000}, {0x4E00, 0x5000},  {0xFF61, 0x3F},
        {0x3000, 0x20},  {0xA1, 0x5F},    {0x3131, 0x5E},   {0x20000, 0xA000}, {0x1F300, 0x100},
        {0xE000, 0x700}, {0x2500, 0x80},  {0x410, 0x40},
    };
    constexpr std::u32string_view rare[] = {
        U"\r\n",         U"\n",         U"\r",           U"\r\r\n",       U"\n\r",
        U"\u304B\u309A", U"\u309A",     U"\u02E9\u02E5", U"\u00E6\u0300", U"\u2028",
        U"\u2029",       U"\U00020089", U"\U0001F600",   U"\u301C",       U"\x1B",
        U"\x7F",         U"\t",         U"\uE000",       U"\u00A5",       U"\u2460"};
    std::u32string text;
    const auto* block = &blocks[0];
    while (text.size() < length) {
        if (random() % run_length == 0) {
            block = &blocks[random() % std::size(blocks)];
        }
        text += block->first + static_cast<char32_t>(random() % block->second);
        if (random() % 60 == 0) {
            text += rare[random() % std::size(rare)];
        }
    }
    return text;
}

std::string convert(const char* from, const char* to, std::string_view input) {
    conversion c{.from = from, .to = to, .input = std::string(input), .expected = {}};
    outcome o = run(c, {input}, 65536);
    EXPECT_TRUE(o.faults.empty() && o.unread == 0)
        << from << " -> " << to << ", input " << to_hex(input).substr(0, 300) << "\n"
        << describe(o).substr(0, 600);
    return o.bytes;
}

} // namespace test
