// Tools to read a definition: a document that releases itself, and searches in it.
#pragma once

#include "cconv/definition/document.h"
#include "platform/platform.h"

#include <algorithm>
#include <optional>

struct owned_document : document {
    owned_document() : document{} {}
    ~owned_document() {
        ZAN_free(text);
        ZAN_free(tagPos);
    }
    owned_document(const owned_document&) = delete;
    owned_document& operator=(const owned_document&) = delete;
};

struct element {
    i32 start, end; // of its content, which includes attributes
};

// Documents must have been made by xmlReadFile.
inline std::optional<element> find_element(const document& in, const char* name, i32 from) {
    element found{};
    return seek_element(&in, name, from, true, &found.start, &found.end) ? std::optional(found)
                                                                         : std::nullopt;
}

// The offset after a key such as "start=".
inline std::optional<i32> find_key(const document& in, const char* key, i32 from) {
    return seek_key(&in, key, from, true);
}

// Whether characters [from, end) contain a double quote, and the offset after it.
inline std::optional<i32> find_quote(const document& in, i32 from, i32 end) {
    for (i32 at = from; at < std::min(end, in.textBytes); at += i32{sizeof(u32)}) {
        if (in.text[static_cast<std::size_t>(at) / sizeof(u32)] == '"') {
            return at + i32{sizeof(u32)};
        }
    }
    return std::nullopt;
}

// Repeated searches for one key, each from the same place as the previous one or a later one. The
// next occurrence is remembered, or that there is none, so that the time is linear even in a
// document full of this key, or of another one.
class key_finder {
public:
    key_finder(document& in, const char* key)
        : in_(in), key_(key), bytes_(static_cast<i32>(std::strlen(key) * sizeof(u32))) {}

    // The offset after the key.
    std::optional<i32> find(i32 from) {
        if (!searched_ || (behind_ && *behind_ - bytes_ < from)) {
            behind_ = find_key(in_, key_, from);
            searched_ = true;
        }
        return behind_;
    }
    [[nodiscard]] i32 bytes() const { return bytes_; }

private:
    document& in_;
    const char* key_;
    i32 bytes_;
    bool searched_ = false;
    std::optional<i32> behind_;
};

// The same for elements, found in the way of find_element.
struct element_keys {
    const char *plain, *attributed, *closing;
};

class element_finder {
public:
    element_finder(document& in, const element_keys& keys)
        : plain_(in, keys.plain), attributed_(in, keys.attributed), closing_(in, keys.closing),
          empty_(in, "/>") {}

    std::optional<element> find(i32 from) {
        auto start = plain_.find(from);
        const auto attributed = attributed_.find(from);
        if (!start || (attributed && *attributed < *start)) {
            start = attributed;
        }
        if (!start) {
            return std::nullopt;
        }
        for (key_finder* ending : {&closing_, &empty_}) {
            if (const auto behind = ending->find(*start)) {
                return element{*start, *behind - ending->bytes()};
            }
        }
        return std::nullopt;
    }

private:
    key_finder plain_, attributed_, closing_, empty_;
};
