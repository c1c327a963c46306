// The library's own functions over whole domains of small inputs: everything that can be made of a
// few telling pieces. Recorded when tests that spelled the cases out had found the answers right.
#include "cconv/engine/engine.h"
#include "cconv/registry/names.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/tables/table.h"
#include "tests/support/charset_directory.h"
#include "tests/support/convert.h"
#include "tests/support/digest.h"
#include "tests/support/document.h"

namespace {

using namespace std::string_literals;
using test::digest;
using test::made_document;
using test::offset;
using test::owned_document;

// Calls back with every sequence of up to so many pieces, joined.
template <typename Piece, typename Callback>
void for_each_sequence(const std::vector<Piece>& pieces, std::size_t longest, const Callback& call,
                       const Piece& before = {}) {
    call(before);
    for (const Piece& piece : pieces) {
        if (longest > 0) {
            for_each_sequence(pieces, longest - 1, call, before + piece);
        }
    }
}

using texts = std::vector<std::string>;

u32 number(i32 value) {
    return static_cast<u32>(value);
}

// A string that an operation made.
std::string taken(char* made) {
    std::string text = made != nullptr ? made : "(null)";
    ZAN_free(made);
    return text;
}

// ---- Definition documents ----------------------------------------------------------------------

// What xmlReadFile makes of a file.
void read_document(const test::temp_dir& dir, std::string_view bytes, u32 encoding, u32 big_endian,
                   digest& answers) {
    dir.write("d.xml", bytes);
    owned_document d;
    answers.add({xmlReadFile("d.xml", encoding, big_endian, &d), d.encoding, d.bigEndian});
    for (const char32_t c : test::text_of(d)) {
        answers.add({c});
    }
    for (i32 i = 0; i < d.tagCount; ++i) {
        answers.add({number(d.tagPos[i])});
    }
}

TEST(Functions, DocumentsAsTheyAreRead) {
    const test::charset_directory dir;
    digest normalised("documents normalised"), declared("documents declared");
    for_each_sequence<std::string>(
        {"<", "?", ">", "-", "a", "\r", "\n", "/"}, 4, [&](const std::string& text) {
            read_document(dir, test::widen(text, 2, false), encoding_utf16, 0, normalised);
        });
    for (const std::string& text : texts{"<!-- <a> -->x", "<?a--b?>-- <? --c", "<a><b/ ></a>",
                                         "<?xml?><a/>", "-----x", "a\r\nb\rc\nd\te"}) {
        read_document(dir, test::widen(text, 2, false), encoding_utf16, 0, normalised);
    }
    // The encoding is told by a mark and a name in the first line; the defaults are UTF-16, most
    // significant byte first.
    for (const std::string& mark :
         {""s, "\xFF\xFE"s, "\xFE\xFF"s, "\xFE\0\0\xFF"s, "\xFF\0\0\xFE"s}) {
        for (const std::string& name :
             {""s, "UTF-16"s, "ISO-10646-UCS-2"s, "utf-8"s, "shift"s, "UTF-8"s,
              "UTF-16ISO-10646-UCS-2"s, "ISO-10646-UCS-2UTF-16"s}) {
            for (const std::string& before : {""s, "<?"s, "\n"s, "\x0A\x41"s}) {
                for (const std::size_t behind : {0U, 1U, 7U, 8U, 9U, 10U, 15U, 30U}) {
                    for (const u32 width : {1U, 2U, 4U}) {
                        const std::string text = name + std::string(behind, 'x');
                        for (const bool big : {false, true}) {
                            read_document(dir, mark + test::widen(before + text, width, big),
                                          encoding_utf16, 1, declared);
                        }
                    }
                }
            }
        }
    }
    for (u32 encoding = 0; encoding < 7; ++encoding) {
        read_document(dir, "ab", encoding, 0, declared);
    }
}

const std::vector<std::u32string> units = {U"1",      U"\xD842", U"\xDFB7",
                                           U"\xD7FF", U"\xE000", U"\xD800"};

std::string unit_bytes(std::u32string_view text) {
    std::string bytes;
    for (const char32_t unit : text) {
        bytes += test::code_text(static_cast<u32>(unit), 2);
    }
    return bytes;
}

TEST(Functions, SurrogatesInFilesAreJoinedTheOldWay) {
    const test::charset_directory dir;
    digest answers("documents with surrogates");
    for_each_sequence<std::u32string>(units, 4, [&](const std::u32string& text) {
        for (const u32 encoding : {encoding_utf16, encoding_ucs2}) {
            read_document(dir, unit_bytes(text), encoding, 1, answers);
        }
    });
}

// With the places of its tags, as xmlReadFile leaves it, or without.
struct searched_document : made_document {
    searched_document(std::string_view from, bool tags) : made_document(from) {
        for (std::size_t at = 0; tags && at < from.size(); ++at) {
            if (from[at] == '<' || from.substr(at, 2) == "/>") {
                tagPos = static_cast<i32*>(ZAN_realloc(tagPos, 4 * (tagCount + 1)));
                tagPos[tagCount++] = static_cast<i32>(at);
            }
        }
    }
};

const i32 positions[] = {INT_MIN, -1, 0, offset(1), offset(3), offset(9), INT_MAX};

TEST(Functions, ElementsInDocuments) {
    digest elements("elements found");
    for_each_sequence<
        std::string>({"<a>", "<a ", "</a>", "/>", "<ab>", "x"}, 4, [&](const std::string& text) {
        for (const bool tags : {false, true}) {
            searched_document d(text, tags);
            for (const i32 from : positions) {
                for (const char* key : {"a", "<a", "/>", "/>a", "a>", "abc"}) {
                    i32 start = -7, end = -7, behind = -7;
                    d.pos = from;
                    elements.add({xmlSeekObj1(&d, key, &behind), number(behind), number(d.pos)});
                    elements.add({xmlSeekObj2(&d, key, &start, &end), number(start), number(end)});
                }
            }
        }
    });
    // Keys and names of more than 511 characters are not found.
    for (const std::size_t length : {507U, 508U, 509U, 510U, 511U, 512U, 6000U}) {
        const std::string name(length, 'n');
        made_document d("<" + name + ">x<b/></" + name + ">");
        i32 start = -7, end = -7, behind = -7;
        elements.add({xmlSeekObj2(&d, name.c_str(), &start, &end), number(start), number(end)});
        elements.add({xmlSeekObj1(&d, name.c_str(), &behind), number(behind)});
    }
}

TEST(Functions, AttributesInDocuments) {
    digest attributes("attributes found");
    const auto find = [&](const std::string& text) {
        made_document d(text);
        const test::guarded_buffer out(text_bytes);
        char* const value = reinterpret_cast<char*>(out.data());
        for (const i32 start : positions) {
            for (const i32 end : {d.textBytes, offset(8), 0, INT_MIN, INT_MAX}) {
                u16 bytes = 99;
                std::strcpy(value, "?");
                xmlGetName(&d, start, end, value);
                attributes.add(value);
                xmlGetLang(&d, start, end, value);
                attributes.add(value);
                xmlGetRule(&d, start, value);
                attributes.add(value);
                const u32 found = xmlGetBasedon(&d, start, end, value);
                xmlGetBytenum(&d, start, end, &bytes);
                attributes.add(value, {found, bytes, number(d.pos)});
            }
        }
    };
    for_each_sequence<std::string>({"basedon=", "domain=", "bytenum=", "\"", "3", " ", "\tx"}, 4,
                                   find);
    for (const std::string& text :
         texts{"\"65538\"", "\" \t4\"", "\"1A\" ", "\"" + std::string(5000, 'x') + "\""}) {
        find("bytenum=" + text + " basedon=" + text + "domain=" + text);
    }
    for (std::size_t gap = 0; gap < 60; ++gap) { // how far beyond its extent a value is looked for
        find("basedon=" + std::string(gap, ' ') + "\"x\"");
    }
}

TEST(Functions, EntitiesInDocuments) {
    digest entities("entities found");
    for_each_sequence<std::string>(
        {"ab SYSTEM \"f\"", "b SYSTEM \"", "&", "ab", ";", " "}, 4, [&](const std::string& text) {
            made_document d(text);
            d.encoding = encoding_ucs2;
            d.bigEndian = 1;
            for (const i32 start : positions) {
                for (const i32 end : {d.textBytes, offset(5), INT_MAX}) {
                    entities.add(taken(xmlGetLink(&d, start, end)));
                    table_object* const table = initTable(2, 0);
                    const u32 found = xmlGetTable(&d, &d, start, end, nullptr, table);
                    entities.add(table->fileName,
                                 {found, table->textEncoding, table->textBigEndian});
                    termTable(table);
                }
            }
            for (const char* name : {"ab", "b", ""}) {
                entities.add(taken(xmlFindEntry(&d, name)), {number(d.pos)});
            }
        });
}

TEST(Functions, NumbersAndCharacters) {
    digest answers("hexadecimal numbers");
    for_each_sequence<std::string>(
        {"8", "Ff", "g", "@`", " \t", "-", "00000000"}, 4, [&](const std::string& text) {
            const std::u32string wide = test::ascii(text);
            const std::vector<u32> characters(wide.begin(), wide.end());
            const i32 count = static_cast<i32>(text.size());
            for (const i32 from : {INT_MIN, -1, 0, 1, count, INT_MAX}) {
                u32 value = 7;
                for (i32 at = from; xmlGetHex(characters.data(), at, count, &at, &value) != 0;) {
                    answers.add({number(at), value});
                }
            }
            answers.add({xatoi(text.c_str())});
        });
    digest widths("widened and narrowed");
    for (const i32 count : {INT_MIN, -1, 0, 1, 2, INT_MAX}) {
        u32 wide[4] = {9, 9, 9, 9};
        widths.add(
            {ASCIItoUCS4("a\xFF", std::min(count, 2), wide) != nullptr, wide[0], wide[1], wide[2]});
        u32* const made = count <= 2 ? ASCIItoUCS4("a\xFF", count, nullptr) : nullptr;
        widths.add({made != nullptr});
        ZAN_free(made);
        const u32 characters[] = {0x3042, 0x1FF41};
        widths.add(count >= 0 && count <= 2 ? taken(UCS4toASCII(characters, count, nullptr)) : "");
    }
    EXPECT_EQ(ASCIItoUCS4("", INT_MAX, nullptr), nullptr);
}

// ---- Table texts -------------------------------------------------------------------------------

// Numbers or characters of a table text.
void read_table(const test::temp_dir& dir, const std::string& bytes, u32 encoding, u32 big_endian,
                decltype(&hex32) read, digest& answers) {
    dir.write("t", bytes);
    u8 buffer[TABLE_READ_BYTES];
    const owned_file file(ZAN_FileOpen(dir.file("t").c_str(), "r"));
    table_reader reader{};
    reader.file = file.get();
    reader.encoding = encoding;
    reader.bigEndian = big_endian;
    reader.readBuf = buffer;
    reader.remaining = static_cast<i32>(bytes.size());
    for (u32 value = 0; read(&reader, &value) != 0;) {
        answers.add({value});
    }
    answers.add({0xFFFF0000});
}

TEST(Functions, TableTexts) {
    const test::temp_dir dir;
    digest numbers("numbers of table texts"), characters("characters of table texts");
    const auto read_numbers = [&](const std::string& text) {
        for (u32 form = 0; form < 6; ++form) {
            const u32 encodings[] = {encoding_utf16, encoding_ucs2, encoding_ucs4};
            const u32 encoding = encodings[form / 2], big = form % 2;
            read_table(dir, test::widen(text, form < 4 ? 2 : 4, big != 0), encoding, big, hex32,
                       numbers);
        }
    };
    for_each_sequence<std::string>({"2", "aF", "<", ">", "\t", "g@"}, 4, read_numbers);
    for (const std::string& text :
         texts{"123456789 ;", "00000000000000000021 ;", "# a comment\r\n"}) {
        read_numbers(text);
    }
    for (u32 encoding = 0; encoding < 7; ++encoding) {
        read_table(dir, "21 22 23 24  ", encoding, 0, hex32, numbers);
    }
    // Longer than the buffer, moved unit by unit across its refills, and without an end.
    std::string text;
    for (u32 i = 0; i < 4000; ++i) {
        text += "0123456789ABCDEF"[i % 16] + std::to_string(i);
        text += i % 7 == 0 ? "<!-- 77 -->" : i % 3 == 0 ? "\r\n" : "\t";
    }
    for (std::size_t shift = 0; shift < 24; ++shift) {
        read_numbers(std::string(shift, ' ') + text);
    }
    read_numbers(std::string(60000, 'f'));
    read_numbers("<" + std::string(60000, 'f'));
    for_each_sequence<std::u32string>(units, 4, [&](const std::u32string& characters_of) {
        const std::string bytes = unit_bytes(characters_of + U"  ");
        for (const u32 encoding : {encoding_utf16, encoding_ucs2, encoding_ucs4}) {
            read_table(dir, bytes, encoding, 1, read32, characters);
        }
        read_table(dir, bytes, encoding_utf16, 1, hex32, characters);
    });
}

// All bytes but the last are handed out, in any portions, also of a file with less in it than was
// said of it; a portion that is none gives nothing.
TEST(Functions, BytesOfTables) {
    const test::temp_dir dir;
    digest answers("bytes of tables");
    std::string bytes;
    for (u32 i = 0; i < 30000; ++i) {
        bytes += static_cast<char>(i * 0x9E3779B1 >> 24);
    }
    for (const std::size_t size : {0U, 1U, 3U, 8192U, 8193U, 16384U, 16385U, 24578U, 30000U}) {
        dir.write("t", bytes.substr(0, size));
        for (const i32 said : {static_cast<i32>(size), 40000}) {
            for (const i32 count : {-1, 1, 3, 4, 1000, 8191, 16384, INT_MAX, INT_MIN}) {
                u8 buffer[TABLE_READ_BYTES], portion[8192] = {};
                const owned_file file(ZAN_FileOpen(dir.file("t").c_str(), "r"));
                table_reader reader{};
                reader.file = file.get();
                reader.readBuf = buffer;
                reader.remaining = said;
                while (readFIO(&reader, portion, count) != 0) {
                    answers.add(test::text_of({portion, static_cast<std::size_t>(count)}));
                }
                answers.add({readFIO(&reader, portion, 4)});
                answers.add(test::text_of({portion, 4}));
            }
        }
    }
}

// ---- Paths, names, characters ------------------------------------------------------------------

TEST(Functions, Paths) {
    digest answers("paths");
    const auto examine = [&](std::string path) {
        const auto p = std::make_unique<split_path>();
        std::memset(p.get(), 'x', sizeof *p);
        splitPath(path.c_str(), p.get());
        const test::guarded_buffer joined(text_bytes);
        char* const out = reinterpret_cast<char*>(joined.data());
        mergePath(out, p.get());
        EXPECT_EQ(out, path.substr(0, text_bytes - 1));
        for (const auto& field : {p->root, p->directory, p->baseName, p->extension}) {
            answers.add(test::text_of({reinterpret_cast<const u8*>(field), 16}));
            const std::size_t length = std::strlen(field);
            answers.add({static_cast<u32>(length)});
            EXPECT_EQ(std::count(field + length, field + text_bytes, '\0'),
                      static_cast<std::ptrdiff_t>(text_bytes - length))
                << path << " leaves what was there";
        }
        answers.add({number(ZAN_nextPathDelimiter(path.c_str())),
                     number(ZAN_getPathBreak(path.c_str())),
                     number(ZAN_nextDrivePathDelimiter(path.c_str()))});
        for (const char c : {'/', '.', 'a'}) {
            const char* found = _right(path.data(), c);
            answers.add({found != nullptr ? static_cast<u32>(found - path.data()) : ~0U});
        }
    };
    for_each_sequence<std::string>({"/", ".", "a", "bc"}, 5, examine);
    for (const std::size_t length : {4094U, 4095U, 4096U, 9000U}) {
        const std::string name(length, 'n');
        for (const std::string& path : {name, name + "/x", "/" + name + "/" + name + ".txt"}) {
            examine(path);
        }
    }
}

TEST(Functions, Names) {
    digest numbers("numbers of names"), comparisons("names compared");
    for_each_sequence<std::string>({"A", "z", "@[", "\xC1", "-1"}, 5, [&](std::string name) {
        numbers.add({TheCreateNo(name.data())});
        numbers.add(name); // folded in place
    });
    std::string longest(6000, '\xFF'); // which wraps
    numbers.add({TheCreateNo(longest.data())});
    for (const group_row& row : groupList) {
        numbers.add(row.name, {row.number});
        std::string name = row.name;
        name[0] = static_cast<char>(name[0] ^ 0x20);
        EXPECT_EQ(TheCreateNo(name.data()), row.number) << row.name;
    }
    constexpr const char* some[] = {"", "a", "b", "ab", "ac", "abc", "\xFF", "\xFF\xFE"};
    for (const char* a : some) {
        for (const char* b : some) {
            comparisons.add({byteCmp(a, b)});
        }
    }
    for (const rule_row& row : ruleList) {
        EXPECT_EQ(TheRule(row.name), &row) << row.name;
    }
    EXPECT_EQ(TheRule(nullptr), nullptr);
    for (const char* name : {"", "dest", "destSAME ", "destsame", "utf-8"}) {
        EXPECT_EQ(TheRule(name), nullptr) << name;
    }
}

TEST(Functions, CombiningPairs) {
    digest answers("combining pairs");
    std::vector<u32> values = {0, 0x3099, 0x309B, 0x02FF, 0x0302};
    for (const combining_row& row : JISX0213CombiningTable) {
        values.insert(values.end(), {row.base, row.mark});
    }
    for (u32 code = 0; code < 0x20000; ++code) {
        u32 base = 0xAAAA, mark = 0xBBBB;
        answers.add({IsJISX0213Combining(code), ConvJISX0213CombiningToUCS(code, &base, &mark),
                     base, mark});
    }
    for (const u32 base : values) {
        for (const u32 mark : values) {
            u32 code = 0xCCCC;
            answers.add({IsJISX0213CombiningUCS(base, mark),
                         ConvJISX0213CombiningFromUCS(base, mark, &code), code});
        }
    }
}

TEST(Functions, CharacterReferences) {
    digest answers("character references");
    const auto s = std::make_unique<session>();
    for (const u32 value : {0U, 9U, 10U, 0xABCDEFU, 0xFFFFFFFFU}) {
        for (u32 mode = 0; mode < 8; ++mode) {
            for (std::size_t room = 3; room < 32; ++room) {
                const test::guarded_buffer out(room);
                *s = {};
                s->target.charRefMode = mode / 2;
                s->target.dstBigEndian = mode % 2;
                test::give_output(*s, {out.data(), room});
                s->outPos = 3;
                std::memset(out.data(), '?', 3);
                answers.add({ToCharRef(s.get(), value), s->status, s->outCount});
                answers.add(test::written(*s));
            }
        }
    }
}

} // namespace
