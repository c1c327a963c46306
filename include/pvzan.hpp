// pvzan.hpp - the C++ interface of libPVZAN.so.1; header-only, C++17.
//
//     #include <pvzan.hpp>
//
//     pvzan::result text = pvzan::convert(bytes, "shift_jis", "utf-8");
//     if (text) {
//         use(text.text);
//     } else {
//         std::cerr << pvzan::describe(text.why) << " at byte " << text.position << '\n';
//     }
//
// What it does beyond pvzan.h:
//
// - It finds the charset directory by itself, and never takes one from the current directory.
// - It sets the byte orders: charsets are called by name, "utf-16le" and "utf-16be" among them.
// - It is strict. Ill-formed Unicode text, EUC and ISO-2022 codes without a character, a letter
//   with a combining mark that the target has not as one, and control codes that would switch sets
//   in ISO-2022-JP are faults with a place, not output.
// - A text may come in pieces cut anywhere, between a letter and its mark too: the result is the
//   same. A pvzan::stream closes its output by itself.
// - Errors are values. Nothing here throws but the allocations of the standard library, and
//   result::value, which throws on request.
//
// A converter is used by one thread at a time; any number of them may run at once.
#ifndef PVZAN_HPP
#define PVZAN_HPP

#include "pvzan/charset.hpp"
#include "pvzan/converter.hpp"
#include "pvzan/detection.hpp"
#include "pvzan/filter.hpp"
#include "pvzan/unicode.hpp"

#endif
