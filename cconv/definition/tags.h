// Tags of a definition, one after the other, with their attributes.
#pragma once

#include "platform/base.h"

#include <span>
#include <string_view>

constexpr bool is_blank(u32 c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// A name or a value as bytes. One that is too long or not ASCII matches nothing.
struct narrow_text {
    static constexpr std::size_t most = 255;
    char bytes[most + 1];
    std::size_t size = 0;

    bool add(u32 c) {
        if (c >= 0x80 || size == most) {
            return false;
        }
        bytes[size++] = static_cast<char>(c);
        return true;
    }
    [[nodiscard]] std::string_view view() const { return {bytes, size}; }
};

struct tag {
    static constexpr std::size_t most_attributes = 6;
    narrow_text name; // includes the slash if it closes an element
    struct {
        narrow_text name, value;
    } attributes[most_attributes];
    std::size_t count = 0;

    [[nodiscard]] std::string_view value(std::string_view wanted) const {
        for (std::size_t i = 0; i < count; ++i) {
            if (attributes[i].name.view() == wanted) {
                return attributes[i].value.view();
            }
        }
        return {};
    }
};

class tag_reader {
public:
    tag_reader(std::span<const u32> text, std::size_t at) : text_(text), at_(at) {}

    // Whether a tag was found that could be read.
    bool read(tag& into) {
        into.name.size = into.count = 0;
        while (at_ < text_.size() && text_[at_] != '<') {
            ++at_;
        }
        ++at_;
        while (more() && !is_blank(here()) && here() != '>' && !ends_empty()) {
            if (!into.name.add(text_[at_++])) {
                return false;
            }
        }
        for (;;) {
            skip_blanks();
            if (ends_empty() || (more() && here() == '>')) {
                return true;
            }
            if (!more() || !read_attribute(into)) {
                return false;
            }
        }
    }

private:
    [[nodiscard]] bool more() const { return at_ < text_.size(); }
    [[nodiscard]] u32 here() const { return text_[at_]; }
    [[nodiscard]] bool ends_empty() const {
        return at_ + 1 < text_.size() && here() == '/' && text_[at_ + 1] == '>';
    }
    void skip_blanks() {
        while (more() && is_blank(here())) {
            ++at_;
        }
    }
    bool read_attribute(tag& into) {
        if (into.count == tag::most_attributes) {
            return false;
        }
        auto& [name, value] = into.attributes[into.count++];
        name.size = value.size = 0;
        while (more() && here() != '=') {
            if (!name.add(text_[at_++])) {
                return false;
            }
        }
        if (at_ + 1 >= text_.size() || text_[at_ + 1] != '"') {
            return false;
        }
        for (at_ += 2; more() && here() != '"'; ++at_) {
            if (!value.add(here())) {
                return false;
            }
        }
        return at_++ < text_.size();
    }

    std::span<const u32> text_;
    std::size_t at_;
};
