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
// This is pvzan_text.h for C++: it is strict, knows common names of charsets, and takes text in
// pieces that may be cut anywhere. In addition it manages buffers, closes its output by itself,
// calls a function for faults, and reads and writes streams. Errors are values. Only the
// allocations of the standard library throw exceptions, and result::value, which is meant to.
//
// A converter must be used by one thread at a time; any number of them may run at the same time.
#ifndef PVZAN_HPP
#define PVZAN_HPP

#include "pvzan/charset.hpp"
#include "pvzan/converter.hpp"
#include "pvzan/detection.hpp"
#include "pvzan/filter.hpp"

#endif
