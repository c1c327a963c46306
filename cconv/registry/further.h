// The charsets that are not read at the start, and the coded sets that they need. They are read
// when their charset is opened by name, and kept until the registry is released. They are stored
// separately, so that the arrays of the root never change. There is one entry for each charset.
// What an entry points to never changes, except for the contents of tables. Entries are added under
// the table lock, and are complete before another thread can find them.
#pragma once

#include "cconv/registry/registry.h"

// The charset of that name, in the root or further; or null.
charset_group* registered_group(const char* name);
// The coded set of that name, without regard to case, or of that number; or null.
basic_set* registered_set(const char* name);
basic_set* registered_set(u32 setNo);
// Whether this is one of the registered charsets, which never change.
bool is_registered(const charset_group* group);

// Add a charset or a set. If its number is taken, it gets another one, since numbers are hashes of
// names. False if memory runs out.
bool add_further(charset_group* group);
bool add_further(basic_set* set);

// Releases all of them, charsets first.
void release_further();
