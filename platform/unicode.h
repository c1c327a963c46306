// The values of Unicode, and the surrogates of UTF-16, which are none.
#pragma once

#include "platform/base.h"

inline constexpr u32 first_high_surrogate = 0xD800, first_low_surrogate = 0xDC00,
                     last_surrogate = 0xDFFF, first_supplementary = 0x10000, last_scalar = 0x10FFFF;

constexpr bool is_high_surrogate(u32 unit) {
    return unit >= first_high_surrogate && unit < first_low_surrogate;
}
constexpr bool is_low_surrogate(u32 unit) {
    return unit >= first_low_surrogate && unit <= last_surrogate;
}
constexpr bool is_surrogate(u32 unit) {
    return unit >= first_high_surrogate && unit <= last_surrogate;
}
constexpr bool is_scalar(u32 c) {
    return c <= last_scalar && !is_surrogate(c);
}
constexpr u32 join_surrogate_pair(u32 high, u32 low) {
    return (high - first_high_surrogate) * 0x400 + (low - first_low_surrogate) +
           first_supplementary;
}
constexpr u32 high_surrogate(u32 scalar) {
    return first_high_surrogate + ((scalar - first_supplementary) >> 10);
}
constexpr u32 low_surrogate(u32 scalar) {
    return first_low_surrogate + (scalar & 0x3FF);
}
