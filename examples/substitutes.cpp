// Three ways to continue after a character that the target lacks: U+2603 in Shift_JIS.
#include <pvzan.hpp>

#include <cstdio>
#include <iostream>

int main() {
    const std::string text = "☃a";
    const auto show = [&text](const char* what, pvzan::fault_handler on_fault) {
        pvzan::options how;
        how.on_fault = std::move(on_fault);
        const pvzan::result written = pvzan::convert(text, "utf-8", "shift_jis", how);
        std::cout << what << ": " << pvzan::convert(written.text, "shift_jis", "utf-8").text
                  << '\n';
    };
    show("dropped", pvzan::replace_with(""));
    show("replaced", pvzan::replace_with("〓"));
    show("written out", [](const pvzan::fault& f) -> std::optional<std::string> {
        if (f.why != pvzan::status::unrepresentable) {
            return std::nullopt; // no text at all: stop here
        }
        char reference[16];
        std::snprintf(reference, sizeof reference, "&#x%lX;", static_cast<unsigned long>(f.scalar));
        return reference;
    });
}
