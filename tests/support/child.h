// Runs a test's body in a process of its own: the charset directory is settled once per process,
// and some bodies are meant to die.
#pragma once

#include "tests/support/test.h"

namespace test {

// Runs body in a child; its failed expectations are printed and fail the caller's test.
void in_child(const std::function<void()>& body);

// Runs body in a child, and tells whether an assertion stopped it, whose message must contain text.
bool dies_by_assertion(const std::function<void()>& body, const char* text);

// Permissions of files hold for this process from now on, whoever's it is. Becoming somebody else
// would do that too, but that one may have no way to the files.
void obey_permissions();

} // namespace test
