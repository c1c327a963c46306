// A charset directory made by a test.
#pragma once

#include "cconv/convert/lifecycle.h"
#include "cconv/directory/directory.h"
#include "tests/support/temp_dir.h"

namespace test {

// An empty directory, settled as the charset directory, with an empty registry.
class charset_directory : public temp_dir {
public:
    charset_directory() {
        EXPECT_EQ(initProcess(), 1U); // the lock, too
        m_charsetpath[0] = '\0';      // whatever a test before this one settled
        EXPECT_EQ(ZAN_setCharsetPath(path().c_str()), 1U);
    }
    ~charset_directory() { termProcess(); }
    charset_directory(const charset_directory&) = delete;
    charset_directory& operator=(const charset_directory&) = delete;

    static void clear_registry() {
        termProcess();
        EXPECT_EQ(initProcess(), 1U);
    }
};

} // namespace test
