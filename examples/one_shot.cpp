// Converts a text in memory, and says where another one is invalid.
#include <pvzan.hpp>

#include <iostream>

int main() {
    // "Character code" in Shift_JIS. The last trail byte is the same as an ASCII backslash.
    const pvzan::result text =
        pvzan::convert("\x95\xB6\x8E\x9A\x83\x52\x81\x5B\x83\x68", "shift_jis", "utf-8");
    if (!text) {
        std::cerr << pvzan::describe(text.why) << " at byte " << text.position << '\n';
        return 1;
    }
    std::cout << text.text << '\n';

    // Everything before the fault has been converted.
    const pvzan::result cut = pvzan::convert("ok\xFF!", "shift_jis", "utf-8");
    std::cout << pvzan::describe(cut.why) << " at byte " << cut.position << '\n';
}
