// Writes text in the charset of this folder: own_charset DIRECTORY, which ./install made. Without
// an argument it prints the path of the charset directory to copy.
#include <pvzan.hpp>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::puts(pvzan::charset_directory().c_str());
        return 0;
    }
    if (!pvzan::use_charsets(argv[1])) { // before everything else
        std::fprintf(stderr, "%s: no charset definitions there\n", argv[1]);
        return 2;
    }
    const pvzan::result text = pvzan::convert("snow ☃", "utf-8", "acme");
    for (const char byte : text.text) {
        std::printf("%02x ", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    }
    std::puts("");
    return text ? 0 : 1;
}
