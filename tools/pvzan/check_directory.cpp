// The library only tells whether it took a charset. This reads the files once more, in the same
// way, to say why not, and what is wrong with the tables of those that it took.
#include "tools/pvzan/check_directory.h"

#include "tools/pvzan/charset_directory.h"
#include "tools/pvzan/definition_text.h"
#include "tools/pvzan/exit_status.h"
#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <utility>

namespace tool {

namespace {

namespace fs = std::filesystem;

struct pair {
    std::uint32_t code, ucs;
};

// The pairs of a text table as the library takes them: a number counts when something follows it,
// and the last character of the file is not read.
struct table_text {
    std::vector<pair> pairs;
    bool cut = false; // a number without its partner, or without an end
};

table_text read_pairs(std::string_view text) {
    table_text table;
    std::vector<std::uint32_t> numbers;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == '<') {
            at = std::min(text.find('>', at), text.size() - 1) + 1;
            continue;
        }
        const std::size_t end =
            std::min(text.find_first_not_of("0123456789abcdefABCDEF", at), text.size());
        if (end == at) {
            ++at;
            continue;
        }
        if (end + 1 >= text.size()) {
            table.cut = true;
            break;
        }
        std::uint32_t number = 0;
        for (const char c : text.substr(at, end - at)) {
            number = number << 4 |
                     static_cast<std::uint32_t>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
        }
        numbers.push_back(number);
        at = end;
    }
    for (std::size_t i = 0; i + 1 < numbers.size(); i += 2) {
        table.pairs.push_back({numbers[i], numbers[i + 1]});
    }
    table.cut = table.cut || numbers.size() % 2 != 0;
    return table;
}

std::string read_bytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The library's number for a name that is none of its fixed ones.
std::uint32_t hashed_number(const std::string& folded) {
    std::uint32_t hash = 4000, position = 1;
    for (const char c : folded) {
        hash += static_cast<unsigned char>(c) * position++;
    }
    return hash;
}

class checker {
public:
    explicit checker(fs::path directory) : directory_(std::move(directory)) {}

    int run() {
        std::vector<std::string> files;
        std::error_code error;
        for (fs::directory_iterator entry(directory_, error), end; !error && entry != end;
             entry.increment(error)) {
            if (entry->path().extension() == ".xml") {
                files.push_back(entry->path().filename().string());
            }
        }
        std::ranges::sort(files);
        for (const std::string& file : files) {
            check_definition(file);
        }
        if (files.empty()) {
            fault(directory_.string(), "there are no definitions (*.xml) in it");
        }
        return sound_ ? exit_converted : exit_bad_text;
    }

private:
    void fault(const std::string& file, const std::string& what) {
        if (said_.insert(file + what).second) {
            answer_lines(current_style().json
                             ? complaint_about(file, what)
                             : fmt::format("{}: {}\n", printable(file), printable(what)));
        }
        sound_ = false;
    }

    // Two names under one number: the later one is taken for the first.
    void note_number(std::map<std::uint32_t, std::string>& numbers, const std::string& name,
                     const std::string& file) {
        const std::string folded = fold_name(name);
        const auto [entry, is_new] = numbers.try_emplace(hashed_number(folded), folded);
        if (!is_new && entry->second != folded) {
            fault(file, fmt::format("the name {} has the number {} of {}; choose another name",
                                    name, entry->first, entry->second));
        }
    }

    void check_definition(const std::string& file) {
        faults_before_ = said_.size();
        const definition_text document = read_definition_text(directory_, file);
        if (!document.fault.empty()) {
            return not_taken(file, document.fault);
        }
        const std::string_view text = document.text;
        const auto charset = find_element(text, "charset", 0);
        const auto name = charset ? find_element(text, "name", charset->start) : std::nullopt;
        if (!name) {
            return not_taken(
                file, fmt::format("the element {} is missing", charset ? "name" : "charset"));
        }
        const std::string charset_name = fold_name(name->in(text));
        if (const auto [first, is_new] = charsets_.try_emplace(charset_name, file); !is_new) {
            return not_taken(
                file, fmt::format("{} is already defined by {}", charset_name, first->second));
        }
        note_number(charset_numbers_, charset_name, file);
        check_sets(file, document);
        check_with_library(file, document, charset_name, *name);
    }

    void not_taken(const std::string& file, const std::string& why) {
        fault(file, fmt::format("not taken: {}", why));
    }

    // The library has the last word.
    void check_with_library(const std::string& file, const definition_text& document,
                            const std::string& name, const element& name_element) {
        const auto session = std::make_unique<pvzan_session>();
        const bool taken = cconvInitConvert(session.get(), nullptr, name.c_str()) == PVZAN_DONE;
        const bool explained = said_.size() > faults_before_;
        const auto rule = find_element(document.text, "rule", name_element.start);
        if (!taken) {
            const bool rules_missing =
                rule &&
                (!quoted(document.text, "construle=", rule->start) ||
                 document.text.find("destrule=", document.text.find("construle=", rule->start)) ==
                     std::string::npos);
            return not_taken(file, rules_missing ? "its rule element lacks construle= or destrule="
                                   : explained   ? "see above"
                                                 : "the library refuses it");
        }
        const bool encodes = session->dstRule != nullptr;
        cconvChgCharset(session.get(), nullptr, name.c_str());
        if (!encodes || session->srcRule == nullptr) {
            fault(file, fmt::format("{} has no {} rule, or one of an unknown name: nothing can be "
                                    "converted {} it",
                                    name, encodes ? "decode" : "encode", encodes ? "from" : "to"));
        }
        const std::uint32_t number =
            cconvInitConvert(session.get(), nullptr, name.c_str()) == PVZAN_DONE
                ? session->dstGroupNo
                : 0;
        answer_lines(
            current_style().json
                ? fmt::format("{{\"file\":{},\"kind\":\"taken\",\"charset\":{},\"number\":{}}}\n",
                              json_string(file), json_string(name), number)
                : fmt::format("{}: taken as {} ({})\n", printable(file), printable(name), number));
    }

    void check_sets(const std::string& file, const definition_text& document) {
        const std::string_view text = document.text;
        std::size_t at = 0;
        for (;;) {
            const auto base = find_element(text, "baseset", at);
            const auto difference = find_element(text, "diffset", at);
            if (!base && !difference) {
                break;
            }
            const bool base_first = base && (!difference || base->start < difference->start);
            const element& found = base_first ? *base : *difference;
            check_set(file, document, found, base_first ? "subseta" : "subsetb",
                      base_first ? "code" : "codeb");
            check_extra_tables(file, document, found);
            at = found.end;
        }
        if (const auto user_defined = find_element(text, "eudcset", at)) {
            check_set(file, document, *user_defined, "", "codec");
        }
    }

    // The file behind the entity that an element refers to; a fault where there is none.
    std::string referred_file(const std::string& file, std::string_view document,
                              std::string_view content, std::string_view what) {
        const auto entity = entity_reference(content);
        const auto target = entity ? entity_file(document, *entity) : std::nullopt;
        if (!target) {
            fault(file, entity ? fmt::format("the entity {} is not declared in it", *entity)
                               : fmt::format("a {} refers to no entity", what));
        }
        return target.value_or("");
    }

    void check_set(const std::string& file, const definition_text& document, const element& where,
                   std::string_view body_name, std::string_view code_name) {
        const std::string set_file =
            referred_file(file, document.text, where.in(document.text), "set");
        if (set_file.empty()) {
            return;
        }
        const definition_text set = read_definition_text(directory_, set_file, document.units);
        if (!set.fault.empty()) {
            return fault(file, set.fault);
        }
        const std::string_view text = set.text;
        std::size_t at = 0;
        element name{}, last{};
        std::vector<std::string_view> wanted = {"name", "lang", code_name};
        if (body_name.empty()) {
            wanted = {"name", code_name};
        } else if (const auto body = find_element(text, body_name, 0)) {
            at = body->start;
        } else {
            return fault(set_file, fmt::format("the element {} is missing", body_name));
        }
        for (const std::string_view element_name : wanted) {
            const auto found = find_element(text, element_name, at);
            if (!found) {
                return fault(set_file, fmt::format("the element {} is missing", element_name));
            }
            name = element_name == "name" ? *found : name;
            last = *found;
            at = found->end;
        }
        register_set(std::string(name.in(text)), set_file);
        if (!body_name.empty()) {
            check_table(file, document, set_file, text, last.start);
        }
    }

    void register_set(const std::string& name, const std::string& set_file) {
        note_number(set_numbers_, name, set_file);
        const auto [entry, is_new] = sets_.try_emplace(fold_name(name), set_file);
        if (!is_new && entry->second != set_file) {
            fault(set_file, fmt::format("not used: the set {} is already registered from {}", name,
                                        entry->second));
        }
    }

    void check_table(const std::string& file, const definition_text& document,
                     const std::string& set_file, std::string_view set, std::size_t from) {
        if (const auto defined = find_element(set, "defined", from)) {
            from = defined->end;
        }
        const auto table = find_element(set, "srtable", from);
        if (!table) {
            return; // a set without a table: its codes are Unicode values
        }
        const auto entity = entity_reference(table->in(set));
        const auto target = entity ? entity_file(document.text, *entity) : std::nullopt;
        if (!target) {
            return fault(
                entity ? file : set_file,
                entity ? fmt::format("the entity {} of {} is not declared in it", *entity, set_file)
                       : "its srtable refers to no entity");
        }
        check_table_file(*target, document.units);
    }

    void check_extra_tables(const std::string& file, const definition_text& document,
                            const element& set) {
        const std::string_view text = document.text;
        std::size_t at = set.start;
        while (const auto table = find_element(text, "dstable", at)) {
            if (table->end >= set.end) {
                return;
            }
            at = table->end;
            const std::string target = referred_file(file, text, table->in(text), "dstable");
            if (!target.empty()) {
                check_table_file(target, document.units);
            }
        }
    }

    void check_table_file(const std::string& named, text_units units) {
        fs::path path(named);
        path = directory_ / path.parent_path() / fold_name(path.filename().string());
        const std::string file = path.filename().string();
        if (!tables_.insert(file).second) {
            return;
        }
        std::error_code error;
        fs::path cache = path;
        cache.replace_extension(".cmp");
        if (!fs::is_regular_file(path, error)) {
            return fault(file, "there is no such table; its set maps nothing");
        }
        const table_text table = read_pairs(decode_units(read_bytes(path), units));
        if (table.pairs.empty()) {
            fault(file, "the table is empty, or in another encoding than its definition");
        } else if (table.cut) {
            fault(file, "the table is cut: its last line must end in a line break of two "
                        "characters");
        }
        if (fs::is_regular_file(cache, error)) {
            check_cache(cache, table);
        }
    }

    void check_cache(const fs::path& cache, const table_text& table) {
        const std::string bytes = read_bytes(cache);
        const std::size_t size = table.pairs.size() * sizeof(pair);
        if (bytes.size() / sizeof(pair) != table.pairs.size() ||
            std::memcmp(bytes.data(), table.pairs.data(), size) != 0) {
            fault(cache.filename().string(),
                  "the cache differs from its table, and is used all the same: remove it");
        }
    }

    fs::path directory_;
    bool sound_ = true;
    std::size_t faults_before_ = 0;
    std::set<std::string> said_, tables_;
    std::map<std::string, std::string> charsets_, sets_; // name to file
    std::map<std::uint32_t, std::string> charset_numbers_, set_numbers_;
};

} // namespace

int check_charset_directory(const std::string& directory) {
    const charset_directory settled = settle_charset_directory(directory);
    if (settled.path.empty()) {
        complain_about(directory, "no such directory");
        return exit_no_work;
    }
    const int status = checker(settled.path).run();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output: cannot write");
        return exit_no_work;
    }
    return status;
}

} // namespace tool
