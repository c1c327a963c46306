// File services.
#include "platform/platform.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::size_t widen(i32 size) {
    return static_cast<std::size_t>(static_cast<i64>(size));
}

} // namespace

extern "C" {

FILE* ZAN_FileOpen(const char* path, const char* mode) {
    return std::fopen(path, mode);
}

i32 ZAN_FileClose(FILE* stream) {
    return std::fclose(stream);
}

i32 ZAN_FileRead(void* buffer, i32 size, i32 count, FILE* stream) {
    if (size <= 0 || count <= 0) {
        return 0;
    }
    // A signal may interrupt a read; continue after the bytes it has read.
    const std::size_t wanted = widen(size) * widen(count);
    std::size_t got = 0;
    for (;;) {
        errno = 0;
        got += std::fread(static_cast<u8*>(buffer) + got, 1, wanted - got, stream);
        if (got == wanted || std::ferror(stream) == 0 || errno != EINTR) {
            break;
        }
        std::clearerr(stream);
    }
    return static_cast<i32>(got / widen(size));
}

i32 ZAN_FileWrite(const void* buffer, i32 size, i32 count, FILE* stream) {
    return size > 0 && count > 0
               ? static_cast<i32>(std::fwrite(buffer, widen(size), widen(count), stream))
               : 0;
}

i32 ZAN_FileSeek(FILE* stream, std::int64_t offset, i32 whence) {
    return std::fseek(stream, static_cast<long>(offset), whence);
}

std::int64_t ZAN_FileTell(FILE* stream) {
    return std::ftell(stream);
}

i32 removeFile(const char* path) {
    return std::remove(path);
}

i32 ZAN_VfPrintf(FILE* stream, const char* format, va_list* arguments) {
    return std::vfprintf(stream, format, *arguments);
}

} // extern "C"

namespace {

// Does not wait for the other end of a pipe; -1 if this is not a regular file. The type is checked
// after opening, so that the file cannot be exchanged in between.
int open_to_read(const char* path, struct stat& status) {
    int descriptor = -1;
    do {
        descriptor = ::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        return -1;
    }
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(descriptor);
        errno = EINVAL; // there is a file, but not a regular one
        return -1;
    }
    return descriptor;
}

owned_file stream_of(int descriptor, const char* mode) {
    FILE* stream = ::fdopen(descriptor, mode);
    if (stream == nullptr) {
        ::close(descriptor);
        errno = ENOMEM;
    }
    return owned_file(stream);
}

} // namespace

owned_file open_regular(const char* path) {
    struct stat status {};
    const int descriptor = open_to_read(path, status);
    if (descriptor < 0) {
        return nullptr;
    }
    return stream_of(descriptor, "rb");
}

// Uses no stream: loading reads a hundred small files, and most of its time is spent in system
// calls.
bool read_regular(const char* path, owned_memory<u8>& data, std::size_t& size) {
    size = 0;
    struct stat status {};
    const int descriptor = open_to_read(path, status);
    if (descriptor < 0) {
        return false;
    }
    const bool fits = status.st_size > 0 && status.st_size <= std::numeric_limits<i32>::max();
    data.reset(fits ? static_cast<u8*>(ZAN_malloc(static_cast<i32>(status.st_size))) : nullptr);
    const std::size_t wanted = data != nullptr ? static_cast<std::size_t>(status.st_size) : 0;
    ssize_t n = 1;
    while (size < wanted && n != 0) {
        n = ::read(descriptor, data.get() + size, wanted - size);
        if (n < 0 && errno != EINTR) {
            break;
        }
        size += n > 0 ? static_cast<std::size_t>(n) : 0;
    }
    ::close(descriptor);
    if (size != wanted) {
        size = 0;
    }
    return data != nullptr;
}

// Independent of the umask: with 0 anybody could write the file, with 077 nobody else could read
// it.
owned_file create_file(const char* path) {
    const int descriptor = ::open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0) {
        return nullptr;
    }
    char directory[text_bytes];
    copy_text(directory, path);
    directory[ZAN_getPathBreak(path)] = '\0';
    struct stat place {};
    mode_t mode = S_IRUSR | S_IWUSR;
    if (::stat(directory, &place) == 0) {
        const mode_t listed = place.st_mode,
                     entered = place.st_mode << 2; // permission to execute means to enter
        mode |= listed & entered & (S_IRGRP | S_IROTH);
    }
    ::fchmod(descriptor, mode);
    return stream_of(descriptor, "wb");
}

bool ran_short(FILE* stream) {
    return std::feof(stream) != 0 || std::ferror(stream) != 0;
}

bool flush_to_disk(FILE* stream) {
    // Some file systems do not support this, so EINVAL is not a failure.
    return std::fflush(stream) == 0 && (::fsync(::fileno(stream)) == 0 || errno == EINVAL);
}

bool rename_file(const char* from, const char* to) {
    return std::rename(from, to) == 0;
}

bool temporary_name(char (&out)[text_bytes], const char* path) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const int length = std::snprintf(
        out, sizeof out, "%s.%ld-%llx%08lx.tmp", path, static_cast<long>(::getpid()),
        static_cast<unsigned long long>(now.tv_sec), static_cast<unsigned long>(now.tv_nsec));
    return length > 0 && static_cast<std::size_t>(length) < sizeof out;
}
