// The charsets beyond those that are read at the start, and the coded sets that they brought: read
// when somebody asks for one by its name, kept until the registry is released. They stand beside
// the arrays of the root, which stay as the start left them. There is one entry for each charset
// that was asked for, and what an entry points to never changes but for the contents of tables.
// Entries are added under the table lock, and complete before another thread can find them.
#pragma once

#include "cconv/registry/registry.h"

// The charset of that name; null where it is neither in the root nor among the further ones.
charset_group* registered_group(const char* name);
// The coded set of that name, or number; likewise. Case does not count.
basic_set* registered_set(const char* name);
basic_set* registered_set(u32 setNo);
// Whether it is one of them, which stay what they are.
bool is_registered(const charset_group* group);

// Add a charset, or a set, which gets another number where its own is another's: numbers are
// hashes of names. False when memory is short.
bool add_further(charset_group* group);
bool add_further(basic_set* set);

// How many sets were added. Under the table lock.
u32 further_set_count();

// Releases them, charsets first.
void release_further();
