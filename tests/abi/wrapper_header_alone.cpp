// pvzan.hpp in a program of its own, with every template of it used.
#include "pvzan.hpp"

#include <vector>

bool feed_bytes(pvzan::converter& with) {
    pvzan::stream stream(with, [](std::string_view) {});
    return stream.feed(std::vector<unsigned char>(3)) && stream.feed("text");
}
