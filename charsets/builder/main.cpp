// build_charsets SOURCE OUTPUT [OVERLAY]: turns the readable sources of the charset directory into
// the form that the library reads; or into a source of it, where OUTPUT ends in ".cpp".

#include "charsets/builder/output.h"

#include <cstdio>
#include <exception>

int main(int count, char** arguments) {
    if (count != 3 && count != 4) {
        std::fputs("usage: build_charsets SOURCE OUTPUT [OVERLAY]\n", stderr);
        return 2;
    }
    try {
        const charsets::directory built =
            charsets::read_directory(arguments[1], count == 4 ? arguments[3] : "");
        const std::filesystem::path output = arguments[2];
        (output.extension() == ".cpp" ? charsets::write_embedded
                                      : charsets::write_directory)(built, output);
        return 0;
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "%s\n", fault.what());
        return 1;
    }
}
