#include "tools/pvzan/directory/charset_directory.h"

#include "tools/pvzan/directory/charset.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace tool {

namespace {

// The definitions and the tables of two charsets fill some 250 pages. Asked for together they come
// sooner than in a fault each; what is released here stays with the process (see main.cpp).
void take_memory() {
#ifdef MADV_POPULATE_WRITE
    constexpr std::size_t bytes = 1100 * 1024;
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    if (void* memory = std::aligned_alloc(page, bytes)) {
        ::madvise(memory, bytes, MADV_POPULATE_WRITE);
        std::free(memory);
    }
#endif
}

} // namespace

std::string charset_directory_path() {
    std::string path(PATH_MAX, '\0');
    path.resize(pvzan_directory(path.data(), path.size()));
    return path;
}

bool settle_charset_directory(const std::string& asked_for, std::string& error) {
    auto why = new_record<pvzan_error>();
    if (!asked_for.empty()) {
        pvzan_set_directory(asked_for.c_str(), &why);
    } else if (charset_directory_path().empty()) {
        const converter none(pvzan_open("utf-8", "utf-8", nullptr, &why));
    }
    error = why.text;
    return why.code == PVZAN_ERROR_NONE;
}

bool open_charset_directory(const std::string& asked_for) {
    std::string error;
    take_memory();
    if (!settle_charset_directory(asked_for, error)) {
        complain(printable(error));
        return false;
    }
    return true;
}

bool is_known(const std::string& name) {
    pvzan_name meaning;
    if (find_charset(name, meaning) && open_converter(meaning, meaning) != nullptr) {
        return true;
    }
    complain_unknown(name);
    return false;
}

void complain_unknown(const std::string& name) {
    pvzan_name meaning;
    const bool known = find_charset(name, meaning);
    std::string message = fmt::format("unknown charset '{}'", printable(name));
    if (known) {
        message = fmt::format("the charset directory has no definition of {}", meaning.shown);
    } else if (name.find("//") != std::string::npos) {
        message += "; use --similar, -e subst or -c instead of a suffix after //";
    } else {
        message += *meaning.shown == '\0' ? "" : fmt::format("; did you mean {}?", meaning.shown);
        message += " (pvzan list prints all names)";
    }
    complain(message);
}

} // namespace tool
