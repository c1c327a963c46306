#include "charsets/builder/markup.h"

#include <algorithm>

namespace charsets {
namespace {

constexpr std::string_view blanks = " \t\n";

bool is_name_character(char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

struct markup_reader {
    markup& document;
    std::size_t offset = 0;
    std::size_t line = 1;

    std::string_view rest() const { return std::string_view(document.source.text).substr(offset); }
    [[noreturn]] void fail(const std::string& message) const {
        document.source.fail(line, message);
    }
    bool done() const { return offset == document.source.text.size(); }

    std::string take(std::size_t count) {
        const std::string taken(rest().substr(0, count));
        line += static_cast<std::size_t>(std::ranges::count(taken, '\n'));
        offset += taken.size();
        return taken;
    }
    bool accept(std::string_view text) {
        if (!rest().starts_with(text)) {
            return false;
        }
        take(text.size());
        return true;
    }
    void expect(std::string_view text) {
        if (!accept(text)) {
            fail("expected '" + std::string(text) + "'");
        }
    }
    std::string take_until(std::string_view end) {
        const std::size_t length = rest().find(end);
        if (length == std::string_view::npos) {
            fail("no '" + std::string(end) + "' follows");
        }
        return take(length);
    }
    std::string take_name() {
        const auto end = std::ranges::find_if_not(rest(), is_name_character);
        const auto length = static_cast<std::size_t>(end - rest().begin());
        if (length == 0) {
            fail("expected a name of a-z, 0-9, '-', '_', '.'");
        }
        const std::string name = take(length);
        if (name.find("--") != std::string::npos) {
            fail("'--' starts a comment, even in a name");
        }
        return name;
    }

    // Blanks and comments. "--" must not stand inside a comment, "?>" would end nothing there.
    void skip_blanks() {
        for (;;) {
            const std::size_t length = rest().find_first_not_of(blanks);
            take(length == std::string_view::npos ? rest().size() : length);
            if (!accept("<!--")) {
                return;
            }
            const std::string comment = take_until("--");
            expect("-->");
        }
    }

    void read_entities() {
        skip_blanks();
        if (!accept("<!DOCTYPE charset [")) {
            return;
        }
        for (skip_blanks(); !accept("]>"); skip_blanks()) {
            entity declared{line, "", ""};
            expect("<!ENTITY ");
            declared.name = take_name();
            expect(" SYSTEM \"");
            declared.file = take_until("\"");
            expect("\">");
            if (document.find_entity(declared.name) != nullptr) {
                document.source.fail(declared.line,
                                     "entity " + declared.name + " is declared twice");
            }
            document.entities.push_back(declared);
        }
    }

    void read_text(element& parent) {
        if (!accept("&")) {
            const std::size_t length = rest().find_first_of("&<");
            if (length == std::string_view::npos) {
                document.source.fail(parent.line, "<" + parent.name + "> is not closed");
            }
            const std::string text = take(length);
            if (text.find("--") != std::string::npos) {
                fail("'--' starts a comment, even in text");
            }
            parent.text += text;
            return;
        }
        parent.references.push_back(take_name());
        expect(";");
    }

    element read_element() {
        element read;
        read.line = line;
        expect("<");
        read.name = take_name();
        while (accept(" ")) {
            attribute found;
            found.name = take_name();
            expect("=\"");
            found.value = take_until("\"");
            if (found.value.find_first_of("<>&\n") != std::string::npos) {
                fail("markup or a line end inside the value of " + found.name);
            }
            if (found.value.find("--") != std::string::npos) {
                fail("'--' starts a comment, even in a value");
            }
            read.attributes.push_back(found);
            expect("\"");
        }
        if (accept("/>")) {
            return read;
        }
        expect(">");
        while (!accept("</" + read.name + ">")) {
            if (rest().starts_with("<!--")) {
                skip_blanks();
            } else if (rest().starts_with("</")) {
                document.source.fail(read.line, "<" + read.name + "> is not closed");
            } else if (rest().starts_with("<")) {
                read.children.push_back(read_element());
            } else {
                read_text(read);
            }
        }
        return read;
    }
};

// Where the library would find the declaration of an entity: behind the first occurrence of its
// name that a blank follows. Comments are out of its sight.
void check_entity_search(const markup& document) {
    std::string text = document.source.text;
    for (std::size_t start; (start = text.find("<!--")) != std::string::npos;) {
        text.erase(start, text.find("-->", start) + 3 - start);
    }
    std::ranges::replace(text, '\n', ' ');
    for (const entity& declared : document.entities) {
        const std::size_t found = text.find(declared.name + ' ');
        constexpr std::string_view lead = "<!ENTITY ";
        if (found < lead.size() || text.substr(found - lead.size(), lead.size()) != lead) {
            document.source.fail(
                declared.line, "entity " + declared.name +
                                   " is not found: its name also occurs before a blank elsewhere");
        }
    }
}

} // namespace

const attribute* element::find_attribute(std::string_view wanted) const {
    const auto found = std::ranges::find(attributes, wanted, &attribute::name);
    return found == attributes.end() ? nullptr : &*found;
}

const entity* markup::find_entity(std::string_view name) const {
    const auto found = std::ranges::find(entities, name, &entity::name);
    return found == entities.end() ? nullptr : &*found;
}

markup read_markup(source_file source) {
    markup document{std::move(source), {}, {}};
    markup_reader reader{document};
    if (!reader.accept(std::string(source_declaration) + "\n")) {
        reader.fail("the first line must be " + std::string(source_declaration));
    }
    reader.read_entities();
    for (reader.skip_blanks(); !reader.done(); reader.skip_blanks()) {
        document.elements.push_back(reader.read_element());
    }
    check_entity_search(document);
    return document;
}

} // namespace charsets
