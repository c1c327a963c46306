// Detects the charset of files, and says how it was found: detect FILE...
#include <pvzan.hpp>

#include <fstream>
#include <iostream>

int main(int argc, char** argv) {
    constexpr const char* breaks[] = {"no line break", "CR LF", "CR", "LF", "U+2028", "U+2029"};
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        std::string start(1 << 20, '\0'); // of a long text its beginning will do
        file.read(start.data(), static_cast<std::streamsize>(start.size()));
        start.resize(static_cast<std::size_t>(file.gcount()));

        const auto found = pvzan::detect(start, file.eof());
        if (!found) {
            std::cout << argv[i] << ": unknown\n";
            continue;
        }
        std::cout << argv[i] << ": " << found->name << ", " << breaks[found->line_break]
                  << (found->mark ? ", byte-order mark" : "")
                  << (found->declared ? ", XML declaration" : "") << '\n';
        // found->charset_name() is the name to pass to a converter; it includes the byte order.
    }
}
