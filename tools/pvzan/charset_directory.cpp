#include "tools/pvzan/charset_directory.h"

#include "tools/pvzan/charset_name.h"
#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <sys/mman.h>
#include <unistd.h>

namespace tool {

namespace {

namespace fs = std::filesystem;

struct candidate {
    std::string path;
    const char* reason;
};

// The directory of the loaded library, links resolved. One of its variables tells where it is: in a
// program that is not position-independent the address of a function is the program's own.
fs::path library_directory() {
    Dl_info info{};
    if (::dladdr(ZAN_getCharsetPath(), &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    std::error_code error;
    const fs::path library = fs::canonical(info.dli_fname, error);
    return error ? fs::path() : library.parent_path();
}

std::vector<candidate> candidates() {
    std::vector<candidate> list;
    if (const char* variable = ::secure_getenv("PVZAN_CHARSET_DIR");
        variable != nullptr && *variable != '\0') {
        list.push_back({variable, "PVZAN_CHARSET_DIR"});
    }
    if (const fs::path beside = library_directory(); !beside.empty()) {
        list.push_back({beside / "pvzan" / "base2", "beside the library"});
        list.push_back({beside.parent_path() / "base2", "in the build tree"});
    }
    list.push_back({PVZAN_INSTALLED_CHARSET_DIR, "installed"});
    return list;
}

bool is_directory(const std::string& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

charset_directory settle(charset_directory found) {
    ZAN_setCharsetPath(found.path.c_str());
    return found;
}

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

charset_directory settle_charset_directory(const std::string& asked_for) {
    charset_directory result;
    if (!asked_for.empty()) {
        result.tried.push_back(asked_for);
        if (is_directory(asked_for)) {
            result.path = asked_for;
            result.reason = "--charset-dir";
            return settle(std::move(result));
        }
        return result;
    }
    for (const candidate& place : candidates()) {
        result.tried.push_back(place.path);
        if (is_directory(place.path)) {
            result.path = place.path;
            result.reason = place.reason;
            return settle(std::move(result));
        }
    }
    return result;
}

bool open_charset_directory(const std::string& asked_for) {
    const charset_directory directory = settle_charset_directory(asked_for);
    if (directory.path.empty()) {
        std::string places;
        for (const std::string& place : directory.tried) {
            places += (places.empty() ? "" : ", ") + printable(place);
        }
        complain(fmt::format("no charset directory; looked for {}", places));
        return false;
    }
    take_memory();
    if (cconvLoadRule() == 0) {
        complain(fmt::format("{}: no charset definitions in this directory ({})",
                             printable(directory.path), directory.reason));
        return false;
    }
    return true;
}

void complain_unknown(const std::string& name) {
    const std::string similar = similar_name(name);
    std::string message = fmt::format("unknown charset '{}'", printable(name));
    if (similar == resolve_charset(name).shown) {
        message = fmt::format("the charset directory has no definition of {}", similar);
    } else if (name.find("//") != std::string::npos) {
        message += "; what iconv takes behind // are options here: --similar, -e subst, -c";
    } else {
        message += similar.empty() ? "" : fmt::format("; did you mean {}?", similar);
        message += " (pvzan list prints all names)";
    }
    complain(message);
}

} // namespace tool
