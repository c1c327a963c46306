// Start and end of the library, the charset directory, and the one-time reading of definitions.
// Each case has a process of its own, in which nothing was settled before.
#include "cconv/convert/lifecycle.h"
#include "cconv/directory/directory.h"
#include "cconv/registry/registry.h"
#include "tests/support/child.h"
#include "tests/support/temp_dir.h"

#include <unistd.h>

namespace {

using test::in_child;
using test::temp_dir;

// A charset of one table-less set.
void write_charset(const temp_dir& directory, const std::string& file, const std::string& name,
                   const std::string& set = "plain.set") {
    directory.write_utf16(file, "<!DOCTYPE charset [\n<!ENTITY theset SYSTEM \"" + set +
                                    "\">\n]>\n<charset>\n<name>" + name +
                                    "</name>\n<rule construle=\"constUTF-8\" "
                                    "destrule=\"destUTF-8\"/>\n"
                                    "<baseset>&theset;</baseset>\n</charset>\n");
}

void write_set(const temp_dir& directory, const std::string& file, int bytes) {
    directory.write_utf16(file, "<subseta>\n<name>plain</name>\n<lang domain=\"en\"/>\n"
                                "<code bytenum=\"" +
                                    std::to_string(bytes) + "\"/>\n</subseta>\n");
}

bool can_open(const char* charset) {
    const auto s = std::make_unique<session>();
    return cconvInitConvert(s.get(), nullptr, charset) == PVZAN_DONE &&
           cconvChgCharset(s.get(), nullptr, charset) == PVZAN_DONE;
}

std::string stored_path(std::size_t size) {
    std::string buffer(text_bytes + 16, '#');
    const char* result = getCharsetPath(buffer.data(), static_cast<u32>(size));
    if (result == nullptr) {
        return buffer[0] == '\0' ? "(refused)" : "(refused, not emptied)";
    }
    EXPECT_EQ(result, buffer.data());
    return result;
}

// ---- The charset directory ---------------------------------------------------------------------

TEST(CharsetPath, IsSetOnce) {
    in_child([] {
        EXPECT_EQ(ZAN_setCharsetPath(nullptr), 0U);
        EXPECT_EQ(ZAN_setCharsetPath(""), 0U);
        EXPECT_STREQ(ZAN_getCharsetPath(), "");
        EXPECT_EQ(ZAN_getCharsetPath(), m_charsetpath);
        EXPECT_EQ(ZAN_setCharsetPath("somewhere"), 1U); // without my_init, too
        EXPECT_EQ(ZAN_setCharsetPath("elsewhere"), 0U);
        EXPECT_EQ(ZAN_setCharsetPath("somewhere"), 0U);
        EXPECT_STREQ(ZAN_getCharsetPath(), "somewhere");
        EXPECT_EQ(stored_path(text_bytes), "somewhere/");
        EXPECT_STREQ(ZAN_getCharsetPath(), "somewhere");
    });
}

TEST(CharsetPath, GetsOneSlashOrIsTheDefault) {
    for (const std::string path : {"", "/", "a", "a/", "a//"}) {
        in_child([&] {
            EXPECT_EQ(ZAN_setCharsetPath(path.c_str()), path.empty() ? 0U : 1U);
            const std::string settled = path.empty() ? "./base2" : path;
            EXPECT_EQ(stored_path(text_bytes), settled.ends_with('/') ? settled : settled + "/");
            EXPECT_EQ(ZAN_setCharsetPath("somewhere"), 0U);
        });
    }
}

TEST(CharsetPath, NeedsRoomForTheSlash) {
    in_child([] {
        EXPECT_EQ(ZAN_setCharsetPath("12345678"), 1U); // 8 bytes, "/" and NUL
        EXPECT_EQ(stored_path(11), "12345678/");
        for (const std::size_t size : {2U, 3U, 8U, 9U, 10U}) {
            EXPECT_EQ(stored_path(size), "(refused)") << size;
        }
        // Buffers that are known to be large enough are said to be of 0 or 1 bytes.
        EXPECT_EQ(stored_path(0), "12345678/");
        EXPECT_EQ(stored_path(1), "12345678/");
        EXPECT_EQ(getCharsetPath(nullptr, text_bytes), nullptr);
    });
}

TEST(CharsetPath, IsCutToItsBuffer) {
    for (const std::size_t length : {4095UL, 5000UL}) {
        in_child([&] {
            const std::string path(length, 'p');
            EXPECT_EQ(ZAN_setCharsetPath(path.c_str()), 1U);
            EXPECT_EQ(ZAN_getCharsetPath(), path.substr(0, 4095));
            EXPECT_EQ(stored_path(text_bytes), "(refused)");
            EXPECT_EQ(cconvLoadRule(), 0U);
            EXPECT_FALSE(can_open("utf-8"));
        });
    }
}

// ---- Reading the definitions -------------------------------------------------------------------

TEST(Definitions, FirstConversionUsesTheDefaultDirectory) {
    const temp_dir here;
    std::filesystem::create_directory_symlink(PVZAN_BASE2_DIR, here.file("base2"));
    for (const bool started : {false, true}) {
        in_child([&] {
            ASSERT_EQ(::chdir(here.path().c_str()), 0);
            ::alarm(60); // a lock taken twice would wait for ever
            if (started) {
                my_init();
            }
            EXPECT_TRUE(can_open("shift_jis"));
            EXPECT_STREQ(ZAN_getCharsetPath(), "./base2/");
            EXPECT_EQ(ZAN_setCharsetPath("elsewhere"), 0U);
            EXPECT_TRUE(can_open("utf-8"));
        });
    }
}

TEST(Definitions, AreSoughtOnlyOnce) {
    const temp_dir empty;
    for (const std::string& path : {empty.path(), empty.file("missing"), empty.file("a-file")}) {
        in_child([&] {
            ZAN_setCharsetPath(path.c_str());
            EXPECT_EQ(cconvLoadRule(), 0U);
            EXPECT_EQ(cconvLoadRule(), 0U);
            EXPECT_FALSE(can_open("utf-8"));
            // What comes later is not looked for.
            write_set(empty, "plain.set", 4);
            write_charset(empty, "utf-8.xml", "utf-8");
            EXPECT_EQ(cconvLoadRule(), 0U);
            EXPECT_FALSE(can_open("utf-8"));
            std::filesystem::remove(empty.file("plain.set"));
            std::filesystem::remove(empty.file("utf-8.xml"));
        });
        empty.write("a-file", "not a directory");
    }
}

TEST(Definitions, BadFilesDoNotHideGoodOnes) {
    const temp_dir directory;
    write_set(directory, "plain.set", 4);
    write_charset(directory, "b.xml", "good");
    write_charset(directory, "c.xml", "lacks-its-set", "missing.set");
    write_charset(directory, "d.XML", "not-asked-for");
    directory.write("a.xml", "this is no definition");
    directory.write("f.xml", "");
    std::filesystem::create_directory(directory.file("g.xml"));
    in_child([&] {
        ZAN_setCharsetPath(directory.path().c_str());
        EXPECT_EQ(cconvLoadRule(), 1U);
        EXPECT_TRUE(can_open("Good"));
        EXPECT_FALSE(can_open("lacks-its-set"));
        EXPECT_FALSE(can_open("not-asked-for"));
        EXPECT_EQ(g_ProcessObject.groups->count, 1);
    });
    in_child([&] { // nothing but bad ones
        std::filesystem::remove(directory.file("b.xml"));
        ZAN_setCharsetPath(directory.path().c_str());
        EXPECT_EQ(cconvLoadRule(), 0U);
    });
}

TEST(Definitions, AreReadInTheOrderOfTheirFileNames) {
    const temp_dir directory;
    // Both sets bear one name: the first definition decides what it is.
    write_set(directory, "two.set", 2);
    write_set(directory, "four.set", 4);
    write_charset(directory, "b.xml", "second", "four.set");
    write_charset(directory, "a.xml", "First", "two.set");
    write_charset(directory, "c.xml", "first", "four.set");
    in_child([&] {
        ZAN_setCharsetPath(directory.path().c_str());
        EXPECT_EQ(cconvLoadRule(), 1U);
        ASSERT_EQ(g_ProcessObject.groups->count, 2);
        ASSERT_EQ(g_ProcessObject.basics->count, 1);
        const auto* set = static_cast<const basic_set*>(getArray(g_ProcessObject.basics, 0));
        EXPECT_EQ(set->byteNum, 2);
        const auto* group = static_cast<const charset_group*>(getArray(g_ProcessObject.groups, 0));
        EXPECT_STREQ(group->name, "first");
    });
}

TEST(Definitions, ASourceBeforeAnyTargetIsUnknown) {
    in_child([] {
        ZAN_setCharsetPath(PVZAN_BASE2_DIR);
        const auto s = std::make_unique<session>();
        EXPECT_EQ(cconvChgCharset(s.get(), nullptr, "utf-8"), PVZAN_UNKNOWN_CHARSET);
        EXPECT_EQ(cconvConvert(s.get()), PVZAN_UNKNOWN_CHARSET);
        EXPECT_EQ(cconvTermConvert(s.get()), PVZAN_DONE);
    });
}

// ---- References --------------------------------------------------------------------------------

TEST(Lifecycle, TheRegistryLivesFromTheFirstReferenceToTheLast) {
    in_child([] {
        EXPECT_EQ(g_ProcessObject.refCount, 0U);
        EXPECT_EQ(g_ProcessObject.groups, nullptr);
        EXPECT_EQ(g_ProcessObject.basics, nullptr);
        my_init();
        EXPECT_EQ(g_ProcessObject.refCount, 1U);
        EXPECT_EQ(g_ProcessObject.blockEntries, 0);
        ASSERT_NE(g_ProcessObject.groups, nullptr);
        ASSERT_NE(g_ProcessObject.basics, nullptr);
        EXPECT_EQ(g_ProcessObject.groups->count, 0);
        EXPECT_EQ(initProcess(), 1U);
        startProcess();
        EXPECT_EQ(g_ProcessObject.refCount, 3U);
        my_fini();
        endProcess();
        EXPECT_EQ(g_ProcessObject.refCount, 1U);
        EXPECT_NE(g_ProcessObject.groups, nullptr);
        termProcess();
        EXPECT_EQ(g_ProcessObject.refCount, 0U);
        EXPECT_EQ(g_ProcessObject.groups, nullptr);
        EXPECT_EQ(g_ProcessObject.basics, nullptr);
        my_init();
        EXPECT_EQ(g_ProcessObject.refCount, 1U);
        EXPECT_NE(g_ProcessObject.groups, nullptr);
    });
}

TEST(Lifecycle, LoadingKeepsAReferenceOfItsOwn) {
    in_child([] {
        my_init();
        ZAN_setCharsetPath(PVZAN_BASE2_DIR);
        EXPECT_TRUE(can_open("utf-8"));
        EXPECT_TRUE(can_open("shift_jis"));
        EXPECT_EQ(g_ProcessObject.refCount, 2U);
        my_fini();
        EXPECT_TRUE(can_open("utf-8")); // the registry outlives the host's reference
        // Once it is gone all the same, nothing is read again.
        termProcess();
        EXPECT_EQ(g_ProcessObject.groups, nullptr);
        EXPECT_EQ(cconvLoadRule(), 1U);
        EXPECT_FALSE(can_open("utf-8"));
        my_init();
        EXPECT_FALSE(can_open("utf-8"));
    });
}

} // namespace
