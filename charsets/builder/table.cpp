#include "charsets/builder/table.h"

#include "charsets/builder/code_grid.h"

#include "cconv/engine/engine.h"

#include <algorithm>
#include <optional>
#include <unordered_map>

namespace charsets {
namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t length = text.find(separator);
        parts.push_back(text.substr(0, length));
        if (length == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(length + 1);
    }
}

struct table_reader {
    table& result;
    std::size_t line = 0;
    std::optional<code_grid> grid{};
    // Counts that the header declares.
    std::optional<u32> pairs{}, decode_only{}, read_only{}, two_way{};
    std::vector<pair>* section = nullptr;
    std::string bytes{}; // as %bytes says it
    // Of a linear table: runs, and how many pairs they are.
    struct run {
        u32 scalar, last;
        std::size_t line;
    };
    std::vector<run> runs{};
    std::size_t linear_pairs = 0;
    u32 last_code = 0;

    [[noreturn]] void fail(const std::string& message) const { result.source.fail(line, message); }

    u32 count(std::string_view text) const {
        u32 value = 0;
        if (!parse_number(text, 10, value)) {
            fail("expected a decimal number");
        }
        return value;
    }

    void read_directive(std::string_view text) {
        const std::size_t blank = std::min(text.find(' '), text.size());
        const std::string_view name = text.substr(0, blank);
        const std::string_view value = text.substr(std::min(blank + 1, text.size()));
        if (name == "bytes" && !grid) {
            grid = code_grid::parse(value);
            bytes = value;
            if (!grid) {
                fail("%bytes needs up to four sets of bytes, as in 81-FE 40-7E,80-FE");
            }
        } else if (name == "extra" && !result.extra && value.empty()) {
            result.extra = true;
        } else if (name == "linear" && grid && !pairs && value.empty()) {
            result.linear = bytes;
        } else if (name == "charset" && result.charset.empty()) {
            const auto words = split(value, ' ');
            if (words.size() != 2) {
                fail("%charset needs a name and a language");
            }
            result.charset = words[0];
            result.language = words[1];
        } else if (name == "exchange" && grid && result.exchanged.empty()) {
            const auto words = split(value, ' ');
            if (words.size() != 3 || result.charset.empty()) {
                fail("%exchange needs two codes and a name, after %charset");
            }
            result.exchanged_codes[0] = read_code(words[0]);
            result.exchanged_codes[1] = read_code(words[1]);
            result.exchanged = words[2];
        } else if (name == "pairs" && !pairs) {
            pairs = count(value);
            section = &result.two_way;
        } else if (name == "changes" && !pairs) {
            pairs = count(value);
            result.changes = true;
            section = &result.two_way;
        } else if (name == "decode-only" && pairs && !decode_only) {
            decode_only = count(value);
            section = &result.decode_only;
        } else if (name == "read-only" && pairs && !read_only) {
            read_only = count(value);
            section = &result.read_only;
        } else if (name == "two-way" && (decode_only || read_only) && !two_way) {
            two_way = count(value);
            section = &result.two_way;
        } else {
            fail("%" + std::string(name) + " is unknown, repeated or out of place");
        }
    }

    u32 read_code(std::string_view text) const {
        u32 code = 0;
        if (!parse_number(text, 16, code)) {
            fail("expected a hexadecimal code");
        }
        if (text != hex(code, grid->digits())) {
            fail("codes must have " + std::to_string(grid->digits()) + " upper-case digits");
        }
        if (!grid->contains(code)) {
            fail(hex(code, grid->digits()) + " is not a code of %bytes");
        }
        return code;
    }

    u32 read_scalar(std::string_view text) const {
        u32 scalar = 0;
        if (!parse_number(text, 16, scalar) || text != hex(scalar)) {
            fail("expected a scalar value, at least four upper-case digits");
        }
        check_scalar(scalar);
        return scalar;
    }

    void check_scalar(u32 scalar) const {
        if (!is_scalar(scalar)) {
            fail(hex(scalar) + " is not a scalar value");
        }
    }

    // A letter, or a letter and a mark with + between them.
    u32 read_character(std::string_view text) const {
        const std::size_t plus = text.find('+');
        const u32 letter = read_scalar(text.substr(0, plus));
        if (plus == std::string_view::npos) {
            return letter;
        }
        const u32 both = in_one(letter, read_scalar(text.substr(plus + 1)));
        if (both == 0) {
            fail(std::string(text) + " is not a letter and mark that a code can have");
        }
        return both;
    }

    void add(u32 code, u32 scalar) const {
        if (scalar == 0 && code != 0) {
            fail("0 stands for no mapping, and only code 0 can have it");
        }
        if (!section->empty() && section->back().code >= code) {
            fail("code " + hex(code, grid->digits()) + " is out of order");
        }
        section->push_back({code, scalar, line});
    }

    void end_run() {
        const u32 behind = grid->following(last_code);
        if (!runs.empty() && behind > last_code) {
            section->push_back({behind, 0, line});
        }
    }

    void add_run(u32 code, u32 last, u32 scalar) {
        const std::size_t count = grid->number_of(last) - grid->number_of(code) + 1;
        const u32 end = scalar + static_cast<u32>(count - 1);
        if (scalar == 0 || end > last_scalar ||
            (scalar <= last_surrogate && end >= first_high_surrogate)) {
            fail("not all of these are scalar values");
        }
        if (!runs.empty() && code <= last_code) {
            fail("code " + hex(code, grid->digits()) + " is out of order");
        }
        if (!runs.empty() && grid->following(last_code) != code) {
            end_run();
        }
        section->push_back({code, scalar, line});
        runs.push_back({scalar, end, line});
        result.run_ends.push_back({last, end, line});
        linear_pairs += count;
        last_code = last;
    }

    void finish_linear() {
        end_run();
        std::ranges::sort(runs, {}, &run::scalar);
        for (std::size_t i = 1; i < runs.size(); ++i) {
            if (runs[i].scalar <= runs[i - 1].last) {
                result.source.fail(runs[i].line, hex(runs[i].scalar) + " is also in line " +
                                                     std::to_string(runs[i - 1].line));
            }
        }
    }

    // code TAB scalar, optionally TAB and the character; first..last TAB first scalar.
    void read_pairs(std::string_view text) {
        if (!grid || section == nullptr) {
            fail("%bytes and %pairs must come before the first code");
        }
        const auto fields = split(text, '\t');
        if (fields.size() < 2 || fields.size() > 3) {
            fail("expected code, TAB and scalar value");
        }
        u32 scalar = read_character(fields[1]);
        const std::size_t dots = fields[0].find("..");
        u32 code = read_code(fields[0].substr(0, dots));
        if (dots == std::string_view::npos) {
            check_picture(fields, scalar);
            return result.linear.empty() ? add(code, scalar) : add_run(code, code, scalar);
        }
        const u32 last = read_code(fields[0].substr(dots + 2));
        if (last <= code) {
            fail("the range does not ascend");
        }
        if (fields.size() == 3) {
            fail("a range must have no third column");
        }
        if (!result.linear.empty()) {
            return add_run(code, last, scalar);
        }
        for (; code != last; code = grid->following(code)) {
            add(code, scalar);
            check_scalar(++scalar);
        }
        add(code, scalar);
    }

    void check_picture(const std::vector<std::string_view>& fields, u32 scalar) const {
        if (fields.size() < 3) {
            return;
        }
        std::size_t offset = 0;
        const letter_and_mark shown = taken_apart(scalar);
        if (fields[2].empty() || next_scalar(fields[2], offset) != shown.letter ||
            (shown.mark != 0 && next_scalar(fields[2], offset) != shown.mark) ||
            offset != fields[2].size()) {
            fail("the third column is not the character " + hex(scalar));
        }
    }

    void read_line(std::string_view text) {
        if (text.empty() || text.front() == '#') {
            return;
        }
        if (text.front() == '%') {
            read_directive(text.substr(1));
        } else {
            read_pairs(text);
        }
    }

    void check_count(std::string_view what, std::size_t declared, std::size_t found) const {
        if (declared != found) {
            result.source.fail(0, "declares " + std::to_string(declared) + " " + std::string(what) +
                                      ", has " + std::to_string(found));
        }
    }

    void check_counts() const {
        if (!pairs) {
            result.source.fail(0, "%pairs is missing");
        }
        check_count("pairs", *pairs,
                    result.linear.empty() ? result.decode_only.size() + result.read_only.size() +
                                                result.two_way.size()
                                          : linear_pairs);
        check_count("pairs that only decode", decode_only.value_or(0), result.decode_only.size());
        check_count("pairs that are only read", read_only.value_or(0), result.read_only.size());
        if (two_way) {
            check_count("two-way pairs", *two_way, result.two_way.size());
        }
        if ((result.extra || result.changes || !result.linear.empty()) &&
            (decode_only || read_only)) {
            result.source.fail(0, "only a whole table may have pairs that only decode");
        }
    }
};

} // namespace

void check_directions(const table& checked) {
    std::unordered_map<u32, std::size_t> codes;
    std::unordered_map<u32, std::size_t> scalars;
    const auto repeated = [&](const pair& found, const std::string& what, std::size_t before) {
        checked.source.fail(found.line, what + " is also in line " + std::to_string(before));
    };
    for (const pair& found : checked.two_way) {
        codes.emplace(found.code, found.line);
        const auto [before, added] = scalars.emplace(found.scalar, found.line);
        if (!added) {
            repeated(found, hex(found.scalar), before->second);
        }
    }
    for (const auto* only : {&checked.decode_only, &checked.read_only}) {
        for (const pair& found : *only) {
            const auto [before, added] = codes.emplace(found.code, found.line);
            if (!added) {
                repeated(found, "code " + hex(found.code), before->second);
            }
            const bool written = scalars.contains(found.scalar);
            if (!written && only == &checked.decode_only) {
                checked.source.fail(found.line,
                                    hex(found.scalar) +
                                        " has no other code, so this pair goes both ways");
            }
            if (written && only == &checked.read_only) {
                checked.source.fail(found.line, hex(found.scalar) +
                                                    " has another code, so this pair "
                                                    "only decodes");
            }
        }
    }
}

u32 table::largest_code() const {
    u32 largest = 0;
    for (const auto* pairs : {&decode_only, &read_only, &two_way}) {
        largest = pairs->empty() ? largest : std::max(largest, pairs->back().code);
    }
    return largest;
}

std::vector<pair> table::in_order() const {
    std::vector<pair> all = decode_only;
    all.insert(all.end(), read_only.begin(), read_only.end());
    for (const pair& found : read_only) {
        all.push_back({0, found.scalar, found.line});
    }
    all.insert(all.end(), two_way.begin(), two_way.end());
    return all;
}

table read_table(const std::filesystem::path& path) {
    table result;
    result.source = read_source(path);
    table_reader reader{result};
    std::string_view rest = result.source.text;
    while (!rest.empty()) {
        ++reader.line;
        const std::size_t length = rest.find('\n');
        reader.read_line(rest.substr(0, length));
        rest.remove_prefix(length + 1);
    }
    reader.check_counts();
    if (result.linear.empty()) {
        check_directions(result);
    } else {
        reader.finish_linear();
    }
    return result;
}

} // namespace charsets
