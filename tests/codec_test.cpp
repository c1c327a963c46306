// The codec rules by themselves, over whole code spaces: every decode rule under every charset,
// every encode rule with every coded set, the state of ISO-2022-JP. Mappings are compared with
// another converter in oracle_test.cpp; here it is statuses, positions and fields, which were found
// to be right by tests that spelled each byte structure out, and are recorded.
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/shift_jis_family.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/digest.h"

namespace {

using namespace std::string_view_literals;
using test::digest;
using test::give_input;
using test::give_output;
using test::open;
using test::session_owner;

// What one call of a decode rule on input that ends where memory ends leaves behind.
void read_one(session& s, rule_function decode, std::string_view input, digest& answers) {
    static const test::guarded_buffer memory(8);
    u8* const start = memory.data() + memory.size() - input.size();
    std::ranges::copy(input, start);
    give_input(s, test::text_of({start, input.size()}));
    s.inCount = 0;
    s.setCode = s.ucsCode = s.outCode2 = s.srcCode = 0;
    s.charSetNo = s.charSetType = 0;
    decode(&s);
    answers.add({s.status, static_cast<u32>(s.inPos), s.inCount, s.charSetNo, s.charSetType,
                 s.setCode, s.ucsCode, s.srcCode, s.outCode2, s.srcShiftSet});
}

// All inputs of up to two bytes, and of three or four behind some bytes that begin so many.
void read_code_space(session& s, rule_function decode, digest& answers) {
    read_one(s, decode, "", answers);
    const u32 shift_set = s.srcShiftSet;
    const auto read = [&](std::initializer_list<u32> bytes) {
        std::string input;
        for (const u32 byte : bytes) {
            input += static_cast<char>(byte);
        }
        s.srcShiftSet = shift_set;
        read_one(s, decode, input, answers);
    };
    for (u32 first = 0; first < 0x100; ++first) {
        read({first});
        const bool longer = first == 0x8F || first == 0x81 || first == 0xE3 || first == 0xFE;
        for (u32 second = 0; second < 0x100; ++second) {
            read({first, second});
            for (u32 third = 0; longer && third < 0x100; third += 3) {
                read({first, second, third});
                read({first, second, third, 0x30 + (third & 0x8F)});
            }
        }
    }
}

bool decodes(const rule_row& row) {
    return std::string_view(row.name).starts_with("dest");
}

// Most charsets lack most sets that a rule may find, so this also tells how those are refused.
TEST(Codec, EveryDecodeRuleUnderEveryCharset) {
    for (const rule_row& row : ruleList) {
        for (const char* charset : test::all_charsets) {
            if (decodes(row)) {
                const session_owner s = open(charset, "utf-8");
                digest answers(std::string(row.name) + " under " + charset);
                read_code_space(*s, row.function, answers);
            }
        }
    }
}

// A set whose table is missing is read as its codes, before all sets behind it.
TEST(Codec, EverySetWithoutItsTable) {
    for (const char* charset : test::all_charsets) {
        const session_owner s = open(charset, "utf-8");
        digest answers(std::string(charset) + " without tables");
        for (basic_set* set : member_sets(s->srcGroup)) {
            const u32 loaded = std::exchange(set->decodeTable->loaded, 0);
            read_code_space(*s, s->srcRule->function, answers);
            set->decodeTable->loaded = loaded;
        }
    }
}

// ---- Encoding ----------------------------------------------------------------------------------

constexpr u8 untouched = 0xDB;

// Lets an encode rule write a prepared code behind start bytes; what is beyond them stays.
void write_one(session& s, rule_function encode, u32 set, u32 code, std::span<u8> out, u32 start,
               u32 designated, digest& answers) {
    std::ranges::fill(out, untouched);
    give_output(s, out);
    s.outPos = static_cast<i32>(start);
    s.outSetNo = set;
    s.outCode = code;
    s.outBytes = 2;
    s.outCode2 = 0;
    s.outCount = 0;
    s.dstShiftSet = designated;
    s.dstShiftPlane = designated == 0 ? 0 : 11;
    s.status = PVZAN_OUTPUT_FULL; // write what is prepared
    encode(&s);
    answers.add({s.status, static_cast<u32>(s.outPos), s.outCount, s.dstShiftSet, s.dstShiftPlane});
    answers.add(test::text_of(out));
}

// Their numbers.
constexpr u32 sets[] = {0,    2001, 2002, 2003, 2004, 2005, 2006,
                        2007, 2008, 2009, 2011, 3001, 3003, 3004};

// Codes reach the rules unchecked by way of a set that source and target share. They never reach
// the arithmetic that stops the process, and every room is kept to.
TEST(Codec, EveryEncodeRuleWithEverySet) {
    for (const rule_row& row : ruleList) {
        if (decodes(row)) {
            continue;
        }
        const session_owner s = open("utf-8", "euc-jp");
        for (const u32 set : sets) {
            digest answers(std::string(row.name) + " of set " + std::to_string(set));
            std::array<u8, 12> out;
            for (u32 code = 0; code < 0x20000; ++code) {
                write_one(*s, row.function, set, code, out, 0, 0, answers);
            }
            const test::guarded_buffer memory(16);
            for (const u32 code :
                 {0x41U, 0xB1U, 0x3021U, 0x7E7EU, 0x7F21U, 0x9321U, 0x12121U, 0x1F600U}) {
                for (std::size_t size = 0; size <= memory.size(); ++size) {
                    for (u32 start = 0; start <= size; ++start) {
                        const std::span<u8> room(memory.data() + memory.size() - size, size);
                        for (const u32 designated : {0U, set}) {
                            write_one(*s, row.function, set, code, room, start, designated,
                                      answers);
                        }
                    }
                }
            }
        }
    }
}

TEST(Codec, RepertoireOfWindows31j) {
    const session_owner tables = open("utf-8", "windows31j"); // loads the encode tables
    const session_owner s = open("utf-8", "iso-10646-ucs-2");
    s->subst1.code = '?';
    s->subst2.code = 0x3013;
    for (const u32 set : sets) {
        digest answers("repertoire in set " + std::to_string(set));
        for (u32 code = 0; code < 0x10000; ++code) {
            for (const u32 scalar : {code, 0U, 0x3042U, 0x4E02U}) {
                s->charSetNo = set;
                s->outCode = code;
                s->ucsCode = scalar;
                answers.add({IsWIN31J(s.get())});
            }
        }
    }
}

// ---- The state of ISO-2022-JP ------------------------------------------------------------------

constexpr std::string_view tokens[] = {"\x1B(B",  "\x1B(J", "\x1B$@",  "\x1B$B", "\x1B$(Q",
                                       "\x1B$(P", "\x1B(I", "\x1B$(D", "\x1B",   "0!",
                                       "A",       "!\"",    "\r",      "\t",     "\n"};

// Every sequence of three, cut everywhere: a cut may lose the plane, which lives for one call.
TEST(Codec, Iso2022JpReadsEverySequenceAtEveryCut) {
    for (const char* charset : {"iso-2022-jp", "iso-2022-jp-2004"}) {
        for (const std::string_view first : tokens) {
            digest answers(std::string(charset) + " from " + test::to_hex(first));
            for (const std::string_view second : tokens) {
                for (const std::string_view third : tokens) {
                    std::string input(first);
                    input.append(second).append(third).append("$\"");
                    const session_owner s = open(charset, "utf-8");
                    for (std::size_t cut = 0; cut < input.size(); ++cut) {
                        s->srcShiftSet = 0;
                        give_input(*s, input);
                        for (const std::size_t end : {cut, input.size()}) {
                            s->inLen = static_cast<i32>(end);
                            u32 steps = 0;
                            do {
                                s->srcRule->function(s.get());
                                answers.add({s->status, static_cast<u32>(s->inPos), s->charSetNo,
                                             s->setCode, s->srcShiftSet});
                            } while (s->status == PVZAN_DECODED && ++steps < 32);
                        }
                    }
                }
            }
        }
    }
}

// JIS X 0213 is designated for each character and never remembered: behind it the set before it
// counts as designated. All other sets when they change. JIS X 0208 goes out as JIS X 0213 plane 1.
TEST(Codec, Iso2022JpWritesEveryPairOfDesignations) {
    digest answers("designations written");
    for (const char* charset : {"iso-2022-jp", "iso-2022-jp-2004"}) {
        for (std::size_t a = 0; a < 6; ++a) {
            for (std::size_t b = 0; b < 6; ++b) {
                for (const std::string_view between : {""sv, "\x1B$(Q!!"sv}) {
                    std::string input(tokens[a]);
                    input.append(a < 2 ? "A" : "!\"")
                        .append(between)
                        .append(tokens[b])
                        .append(b < 2 ? "B" : "0!");
                    for (std::size_t room = 0; room < 24; ++room) {
                        std::array<u8, 24> out;
                        const session_owner s = open("iso-2022-jp-2004", charset);
                        give_input(*s, input);
                        give_output(*s, std::span(out).first(room));
                        for (u32 calls = 0;
                             calls < 4 && cconvConvert(s.get()) == PVZAN_UNREPRESENTABLE; ++calls) {
                        }
                        answers.add({s->status, static_cast<u32>(s->inPos), s->dstShiftSet,
                                     s->dstShiftPlane});
                        answers.add({cconvTermConvert(s.get()), s->dstShiftSet});
                        answers.add(test::written(*s));
                    }
                }
            }
        }
    }
}

// ---- The arithmetic of Shift_JIS ----------------------------------------------------------------

// Line in which an input of JIStoSJIS2004 must stop the process; 0 for inputs with a result. Plane
// 2 has some rows; 64 to 77 are let through although it has none: deliberate.
u32 assertion_line(u32 code) {
    constexpr std::string_view rows = "\1\3\4\5\10\14\15\16\17";
    const u32 row = code >> 8 & 0xFF, cell = code & 0xFF, ku = row - 0x20;
    const bool plane2 = (code & 0x10000) != 0;
    return code <= 0xFF                            ? 0
           : !plane2 && (row < 0x21 || row > 0x7E) ? 217
           : plane2 && (ku < 64 || ku > 94) &&
                   (ku > 15 || rows.find(static_cast<char>(ku)) == rows.npos)
               ? 229
           : ku % 2 != 0 && (cell < 0x21 || cell > 0x7E) ? 240
                                                         : 0;
}

// All codes, those off the grid of 94 cells included, which are counted on as a number would be,
// deliberately. What is above the code's own bits is ignored. Recorded when it was found to be the
// same as counting: valid codes in order are the cells of the JIS rows in order.
TEST(JisArithmetic, OverAllCodes) {
    const std::pair<const char*, u32 (*)(u32)> functions[] = {
        {"SJIStoJIS", SJIStoJIS}, {"SJIStoJISex", SJIStoJISex}, {"SJIStoJIS2004", SJIStoJIS2004},
        {"JIStoSJIS", JIStoSJIS}, {"JIStoSJISex", JIStoSJISex}, {"JIStoSJIS2004", JIStoSJIS2004}};
    for (const auto& [name, convert] : functions) {
        test::digest answers(name);
        const bool has_planes = convert == JIStoSJIS2004;
        for (u32 code = 0; code <= (has_planes ? 0x1FFFFU : 0xFFFFU); ++code) {
            if (!has_planes || assertion_line(code) == 0) {
                const u32 converted = convert(code);
                answers.add({converted});
                ASSERT_TRUE(code <= 0xFF || convert(0xABCC0000 | code) == converted) << name;
            }
        }
    }
}

TEST(JisArithmetic, CodesThatAreNoJisX0213StopTheProcess) {
    std::vector<u32> stopping = {0x100, 0x20041, 0x7FFE0041};
    for (u32 row = 0; row <= 0x1FF; ++row) {
        for (const u32 cell : {0x00U, 0x20U, 0x21U, 0x7EU, 0x7FU, 0xFFU}) {
            // Every row with a cell of the grid, every eighth with the others.
            if ((cell == 0x21 || row % 8 == 1) && assertion_line(row << 8 | cell) != 0) {
                stopping.push_back(row << 8 | cell);
            }
        }
    }
    EXPECT_GT(stopping.size(), 300U);
    for (const u32 code : stopping) {
        const std::string message = "cconv/rulefunc:" + std::to_string(assertion_line(code)) +
                                    ": JIStoSJIS2004: Assertion `0' failed";
        EXPECT_TRUE(test::dies_by_assertion([&] { JIStoSJIS2004(code); }, message.c_str()))
            << std::hex << code;
    }
}

} // namespace
