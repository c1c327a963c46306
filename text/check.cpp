// Finds out why the library does not accept a definition, and what is wrong with the files that it
// names: reads the definition again with the same functions, step by step.
#include "cconv/convert/lifecycle.h"
#include "cconv/definition/definition.h"
#include "cconv/definition/document_search.h"
#include "cconv/definition/iso2022_read.h"
#include "cconv/definition/set_read.h"
#include "cconv/directory/directory.h"
#include "cconv/registry/further.h"
#include "cconv/registry/names.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/tables/table.h"
#include "text/check_table.h"
#include "text/directory.h"
#include "text/names.h"
#include "text/record.h"

#include <cstdarg>
#include <cstdio>

namespace text {

namespace {

// The part of a path by which a file is found in the charset directory.
const char* last_part(const char* path) {
    const char* const slash = is_further_path(path) ? nullptr : std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

class checker {
public:
    checker(pvzan_error* errors, size_t most)
        : errors_(errors), most_(most), stride_(errors != nullptr ? errors->size : 0) {}

    size_t check(const char* file) {
        check_definition(last_part(file));
        return count_;
    }

private:
    __attribute__((format(printf, 3, 4))) void tell(const char* file, const char* format, ...) {
        if (errors_ != nullptr && count_ < most_) {
            pvzan_error told = {};
            told.code = PVZAN_ERROR_DEFINITION;
            copy_text(told.file, file);
            va_list arguments;
            va_start(arguments, format);
            std::vsnprintf(told.text, sizeof told.text, format, arguments);
            va_end(arguments);
            auto& given =
                *reinterpret_cast<pvzan_error*>(reinterpret_cast<u8*>(errors_) + count_ * stride_);
            given.size = static_cast<u32>(stride_);
            fill_record(given, told);
        }
        ++count_;
    }

    // The path of a file in the directory, where names are in lower case.
    static bool path_of(const char* file, const char* extension, char (&path)[text_bytes]) {
        char name[text_bytes];
        copy_text(name, last_part(file));
        fold_text(name);
        char* const dot = std::strrchr(name, '.');
        if (extension != nullptr && dot != nullptr) {
            *dot = '\0';
        }
        return getCharsetPath(path, sizeof path) != nullptr && append_text(path, name) &&
               (extension == nullptr || append_text(path, extension));
    }

    bool read(const char* file, u32 encoding, u32 big_endian, owned_document& in) {
        if (xmlReadFile(file, encoding, big_endian, &in) != 0 && in.textBytes > 0) {
            return true;
        }
        char path[text_bytes];
        owned_memory<u8> bytes;
        std::size_t size = 0;
        const bool is_there = path_of(file, nullptr, path) && read_regular(path, bytes, size);
        if (is_there && size > 0) {
            tell(file, "the file is not in UTF-16, UCS-2 or UCS-4");
        } else {
            tell(file, "the file is missing or empty");
        }
        return false;
    }

    std::optional<element> find(const document& in, const char* file, const char* name, i32 from) {
        const auto found = find_element(in, name, from);
        if (!found) {
            tell(file, "the element %s is missing", name);
        }
        return found;
    }

    // What a key says in an element must be a hexadecimal number up to most.
    void check_number(const char* file, owned_document& in, const element& where, const char* key,
                      u32 most, bool may_lack) {
        const auto at = find_key(in, key, where.start);
        const bool is_there = at && *at <= where.end;
        const auto open = is_there ? find_quote(in, *at, where.end) : std::nullopt;
        const auto close = open ? find_quote(in, *open, where.end) : std::nullopt;
        char value[text_bytes] = "";
        if (close) {
            xmlGetName(&in, *open, *close - i32{sizeof(u32)}, value);
        }
        const std::size_t digits = std::strspn(value, "0123456789ABCDEFabcdef");
        const bool fits =
            digits <= 8 && value[digits] == '\0' && xatoi(value) > 0 && xatoi(value) <= most;
        if (!fits && (is_there || !may_lack)) {
            tell(file, "%s must be a number from 1 to %X, in quotation marks", key, most);
        }
    }

    static bool charset_name(owned_document& in, char (&name)[text_bytes], element& where) {
        const auto charset = find_element(in, "charset", 0);
        const auto found = charset ? find_element(in, "name", charset->start) : std::nullopt;
        if (found) {
            where = *found;
            xmlGetName(&in, found->start, found->end, name);
            fold_text(name);
        }
        return found.has_value();
    }

    void check_definition(const char* file) {
        owned_document in;
        char name[text_bytes];
        element where{};
        if (!read(file, encoding_utf16, 0, in)) {
            return;
        }
        if (!charset_name(in, name, where)) {
            tell(file, "the element %s is missing",
                 find_element(in, "charset", 0) ? "name" : "charset");
            return;
        }
        if (is_taken(file, name)) {
            return;
        }
        const auto rule = find_element(in, "rule", where.start);
        const auto encoder = rule ? find_key(in, "construle=", rule->start) : std::nullopt;
        if (rule && !(encoder && find_key(in, "destrule=", *encoder))) {
            tell(file, "the element rule lacks construle= or destrule=");
        }
        check_sets(file, in);
        if (member_count_ == 0 && count_ == 0) {
            tell(file, "the charset has no set");
        }
        check_iso2022(file, in, rule);
        const charset_group* group = find_charset(name);
        if (group == nullptr) {
            if (count_ == 0) {
                tell(file,
                     "the library did not accept it: memory was short, or it has changed since");
            }
            return;
        }
        check_codes(file, *group);
        for (const bool encodes : {true, false}) {
            if (TheRule(encodes ? group->constRule : group->destRule) == nullptr) {
                tell(file,
                     "%s has no %s rule, or one of an unknown name: nothing can be converted %s it",
                     name, encodes ? "encode" : "decode", encodes ? "to" : "from");
            }
        }
    }

    void check_iso2022(const char* file, owned_document& in, const std::optional<element>& rule) {
        bool uses_it = false;
        for (const char* const key : {"construle=", "destrule="}) {
            char name[text_bytes] = "";
            if (const auto at = rule ? find_key(in, key, rule->start) : std::nullopt) {
                xmlGetRule(&in, *at, name);
            }
            uses_it = uses_it || goes_by_iso2022(name);
        }
        if (!uses_it) {
            return;
        }
        const char* names[most_members];
        for (std::size_t i = 0; i < member_count_; ++i) {
            names[i] = members_[i];
        }
        iso2022 codes;
        complaint wrong;
        if (!read_iso2022({in.text, static_cast<std::size_t>(in.textBytes) / sizeof(u32)}, 0,
                          {names, member_count_}, codes, wrong)) {
            tell(file, "%s", wrong.text);
        }
    }

    // Checks that each set of the element has characters at the codes that result from adding add=.
    void check_codes(const char* file, const charset_group& group) {
        if (group.codes == nullptr) {
            return;
        }
        for (const graphic_set& set : group.codes->sets()) {
            for (const u8 place : set.member_places()) {
                const auto* member = static_cast<basic_set*>(getArray(group.memberSets, place));
                loadTableFile(member->decodeTable);
                const auto& table = *member->decodeTable;
                u32 code = std::max(table.minKey, set.add);
                const u32 last = std::min(table.maxKey, set.add + 0xFFFF);
                while (table_loaded(&table) && code <= last &&
                       !(set.may_hold(code - set.add) && map_code(&table, code) != 0)) {
                    ++code;
                }
                if (code > last) {
                    tell(file, "the set %s contains no code of %s", set.name, member->name);
                }
            }
        }
    }

    // A further charset is found by the name of its file, unless a definition that is read at the
    // start has this name.
    bool is_out_of_reach(const char* file, const char* name) {
        char path[text_bytes];
        if (!further_path(name, path) || std::strcmp(path, file) != 0) {
            tell(file, "the file that defines %s must have that name, in lower case", name);
            return true;
        }
        const bool is_taken = find_charset(name) != nullptr && is_read_at_start(name);
        if (is_taken) {
            tell(file, "%s is already defined outside this folder", name);
        }
        return is_taken;
    }

    // Checks the definitions before it: the first one with a name or number is used.
    bool is_taken(const char* file, const char* name) {
        if (is_further_path(file)) {
            return is_out_of_reach(file, name);
        }
        char directory[text_bytes];
        getCharsetPath(directory, sizeof directory);
        const file_names definitions(directory, "*.xml");
        for (const char* other : definitions.all()) {
            owned_document in;
            char taken[text_bytes];
            element where{};
            if (std::strcmp(other, file) >= 0 || xmlReadFile(other, encoding_utf16, 0, &in) == 0 ||
                !charset_name(in, taken, where) || group_number(taken) != group_number(name)) {
                continue;
            }
            if (std::strcmp(taken, name) == 0) {
                tell(file, "%s is already defined by %s", name, other);
            } else {
                tell(file, "the name %s has the number %u, as %s does; choose another name", name,
                     group_number(name), taken);
            }
            return true;
        }
        return false;
    }

    void check_sets(const char* file, owned_document& in) {
        i32 at = 0;
        for (;;) {
            const auto base = find_element(in, "baseset", at);
            const auto difference = find_element(in, "diffset", at);
            if (!base && !difference) {
                break;
            }
            const bool base_first = base && (!difference || base->start < difference->start);
            const element& set = base_first ? *base : *difference;
            check_set(file, in, set, base_first ? "subseta" : "subsetb",
                      base_first ? "code" : "codeb");
            check_extra_tables(file, in, set);
            at = set.end;
        }
        if (const auto user_defined = find_element(in, "eudcset", at)) {
            check_set(file, in, *user_defined, nullptr, "codec");
        }
    }

    // The file of the entity in an extent of linking.
    owned_memory<char> referred(const char* file, owned_document& in, owned_document& linking,
                                const element& where, const char* what) {
        const owned_memory<char> entity(xmlGetLink(&linking, where.start, where.end));
        if (entity == nullptr) {
            tell(file, "a %s refers to no entity", what);
            return nullptr;
        }
        owned_memory<char> found(xmlFindEntry(&in, entity.get()));
        if (found == nullptr) {
            tell(file, "the entity %s is not declared", entity.get());
        }
        return found;
    }

    void check_set(const char* file, owned_document& in, const element& where, const char* body,
                   const char* code) {
        const owned_memory<char> set_file = referred(file, in, in, where, "set");
        owned_document set;
        if (set_file == nullptr || !read(set_file.get(), in.encoding, in.bigEndian, set)) {
            return;
        }
        const char* const name = set_file.get();
        const auto begin = body != nullptr ? find(set, name, body, 0) : element{0, 0};
        const auto named = begin ? find(set, name, "name", begin->start) : std::nullopt;
        const auto lang = named && body != nullptr ? find(set, name, "lang", named->end) : named;
        const auto found = lang ? find(set, name, code, lang->end) : std::nullopt;
        if (!found) {
            return;
        }
        if (member_count_ < most_members) {
            char whole[text_bytes];
            xmlGetName(&set, named->start, named->end, whole);
            copy_text(members_[member_count_++], whole);
        }
        if (!is_further_path(file)) {
            check_set_name(name, set, *named);
        }
        check_number(name, set, *found, "bytenum=", max_code_bytes, true);
        if (body == nullptr) {
            if (const auto range = find(set, name, "defrange", found->start)) {
                check_number(name, set, *range, "start=", 0xFFFF, false);
                check_number(name, set, *range, "number=", 0xFFFF, false);
            }
            return;
        }
        code_bytes codes{};
        const counting counted = counted_codes(set, found->start, found->end, codes);
        if (counted == counting::faulty) {
            tell(name, "linear= needs a range of bytes, such as 81-FE, for each byte of a code");
            return;
        }
        char words[128];
        const auto defined = find_element(set, "defined", found->start);
        if (defined && !text::check_codes(set, defined->start, defined->end, words)) {
            tell(name, "%s", words);
        }
        const auto table = find_element(set, "srtable", defined ? defined->end : found->start);
        if (table) { // without a table its codes are Unicode values
            const auto table_file = referred(file, in, set, *table, "srtable");
            if (table_file != nullptr) {
                u16 bytes = 0;
                xmlGetBytenum(&set, found->start, found->end, &bytes);
                check_table(table_file.get(), in, bytes,
                            counted == counting::sound ? &codes : nullptr);
                check_set_table(name, set, *named, table_file.get());
            }
        }
    }

    // All definitions use the first set with a number.
    void check_set_name(const char* file, owned_document& set, const element& where) {
        char name[text_bytes];
        xmlGetName(&set, where.start, where.end, name);
        const u32 number = group_number(name);
        const basic_set* other = definitions_settled() ? registered_set(number) : nullptr;
        if (other != nullptr && !::same_name(other->name, name)) {
            tell(file, "the name %s has the number %u, as %s does; choose another name", name,
                 number, other->name);
        }
    }

    // All definitions use the set with a name that was read first.
    void check_set_table(const char* file, owned_document& set, const element& where,
                         const char* table) {
        char name[text_bytes];
        xmlGetName(&set, where.start, where.end, name);
        const basic_set* other = definitions_settled() ? registered_set(name) : nullptr;
        if (other != nullptr && std::strcmp(other->decodeTable->fileName, table) != 0) {
            tell(file, "another set named %s has the table %s", name, other->decodeTable->fileName);
        }
    }

    void check_extra_tables(const char* file, owned_document& in, const element& set) {
        i32 at = set.start;
        while (const auto table = find_element(in, "dstable", at)) {
            if (table->end >= set.end) {
                return;
            }
            at = table->end;
            check_number(file, in, *table, "bytenum=", max_code_bytes, true);
            if (const auto table_file = referred(file, in, in, *table, "dstable")) {
                check_table(table_file.get(), in, max_code_bytes);
            }
        }
    }

    // counted: the bytes of counted codes; null if each pair is a code.
    void check_table(const char* file, const owned_document& in, u16 code_size,
                     const code_bytes* counted = nullptr) {
        char path[text_bytes], cache[text_bytes], words[128];
        const bool named = path_of(file, nullptr, path) && path_of(file, ".cmp", cache);
        const owned_file table = named ? open_regular(path) : owned_file();
        if (table == nullptr) {
            tell(file, "the table is missing");
            return;
        }
        owned_memory<u8> cached;
        std::size_t size = 0;
        const bool has_cache = read_regular(cache, cached, size);
        const bool agrees = text::check_table(
            {table.get(), in.encoding, in.bigEndian, code_size, counted, {cached.get(), size}},
            words);
        if (words[0] != '\0') {
            tell(file, "%s", words);
        } else if (has_cache && !agrees) {
            tell(last_part(cache),
                 "the cache differs from its table, but the library uses it: remove it");
        }
    }

    pvzan_error* errors_;
    size_t most_, stride_, count_ = 0;
    static constexpr std::size_t most_members = 32;
    char members_[most_members][64]; // the sets' names
    std::size_t member_count_ = 0;
};

} // namespace

} // namespace text

using namespace text;

extern "C" size_t pvzan_check_definition(const char* path, pvzan_error* errors, size_t most) {
    if (path == nullptr || (errors != nullptr && most > 0 && !is_record(errors))) {
        return 0;
    }
    settle_directory(nullptr); // there is more to say if no definition was accepted
    return checker(most > 0 ? errors : nullptr, most).check(path);
}
