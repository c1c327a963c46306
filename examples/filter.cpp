// Converts standard input to standard output: filter FROM TO
#include <pvzan.hpp>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "filter FROM TO <input >output\n";
        return 2;
    }
    std::ios::sync_with_stdio(false);
    pvzan::output_filter filter(std::cout.rdbuf(), argv[1], argv[2]);
    std::ostream out(&filter);
    out << std::cin.rdbuf(); // or anything else that writes to a stream

    if (!filter.finish()) { // writes what closes the text
        const pvzan::summary at = filter.so_far();
        std::cerr << pvzan::describe(at.why) << " at byte " << at.position << '\n';
        return 1;
    }
}
