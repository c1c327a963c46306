// Reads the charset directory that is inside the library.
#include "cconv/directory/embedded.h"

#include <algorithm>
#include <cerrno>

// A build that contains such a directory defines its own list, which the linker prefers.
[[gnu::weak]] extern const std::span<const embedded_file> embedded_files{};

bool is_embedded(const char* path) {
    return std::strncmp(path, embedded_directory, sizeof embedded_directory - 1) == 0;
}

const embedded_file* find_embedded(const char* path) {
    const char* name = path + sizeof embedded_directory - 1;
    const auto less = [](const embedded_file& file, const char* n) {
        return std::strcmp(file.name, n) < 0;
    };
    const auto found = std::lower_bound(embedded_files.begin(), embedded_files.end(), name, less);
    return found != embedded_files.end() && std::strcmp(found->name, name) == 0 ? &*found : nullptr;
}

bool read_charset_file(const char* path, owned_memory<u8>& data, std::size_t& size) {
    if (!is_embedded(path)) {
        return read_regular(path, data, size);
    }
    const embedded_file* file = find_embedded(path);
    size = file != nullptr ? file->bytes.size() : 0;
    data.reset(size > 0 ? static_cast<u8*>(ZAN_malloc(static_cast<i32>(size))) : nullptr);
    if (data == nullptr) {
        size = 0;
        return false;
    }
    std::memcpy(data.get(), file->bytes.data(), size);
    return true;
}

u32 packed_pairs::number() {
    u32 value = 0;
    for (u32 shift = 0; !rest_.empty() && shift < 32; shift += 7) {
        const u8 byte = rest_.front();
        rest_ = rest_.subspan(1);
        value |= u32{byte & 0x7FU} << shift;
        if (byte < 0x80) {
            break;
        }
    }
    return value;
}

u32 packed_pairs::distance() {
    const u32 value = number();
    return value % 2 == 0 ? value / 2 : ~(value / 2);
}

bool packed_pairs::next(u32& code, u32& ucs) {
    if (rest_.empty()) {
        return false;
    }
    if (left_ == 0) {
        left_ = number();
        code_ += distance();
    }
    --left_;
    ucs_ += distance();
    code = code_++;
    ucs = ucs_++;
    return true;
}
