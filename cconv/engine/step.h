// Converts one character with the two rules of a session: what the driver repeats, and what the
// fast path asks about a single character.
#pragma once

#include "platform/base.h"

// Runs the decode rule for the next character; the status says what happened.
void decode_step(session* s);

// Runs the encode rule until the character, or a substitute for it, has been written or dropped, or
// stops the conversion.
void encode_step(session* s);

// What is normalised as a line break: control codes as they were read, separators by their meaning.
inline constexpr u16 control_breaks[] = {'\r', '\n'},
                     line_separators[] = {line_separator, paragraph_separator};
