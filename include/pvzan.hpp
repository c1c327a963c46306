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
// It is pvzan_text.h for C++: strict, by the names people use, in pieces cut anywhere. Beyond that
// it holds what needs room, closes its output by itself, asks a function about faults, and reads
// and writes streams. Errors are values. Nothing here throws but the allocations of the standard
// library, and result::value, which throws on request.
//
// A converter is used by one thread at a time; any number of them may run at once.
#ifndef PVZAN_HPP
#define PVZAN_HPP

#include "pvzan/charset.hpp"
#include "pvzan/converter.hpp"
#include "pvzan/detection.hpp"
#include "pvzan/filter.hpp"

#endif
