// Runs a test's body in a process of its own: the charset directory is settled once per process,
// and some bodies are meant to die.
#pragma once

#include "tests/support/test.h"

namespace test {

// Runs body in a child; its failed expectations are printed and fail the caller's test.
void in_child(const std::function<void()>& body);

// Runs body in a child, and tells whether an assertion stopped it, whose message must contain text.
bool dies_by_assertion(const std::function<void()>& body, const char* text);

} // namespace test
