// File services.
#include "platform/platform.h"

#include <ctime>
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
    return static_cast<i32>(std::fread(buffer, widen(size), widen(count), stream));
}

i32 ZAN_FileWrite(const void* buffer, i32 size, i32 count, FILE* stream) {
    return static_cast<i32>(std::fwrite(buffer, widen(size), widen(count), stream));
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

bool is_regular_file(const char* path) {
    struct stat status {};
    return ::stat(path, &status) == 0 && S_ISREG(status.st_mode);
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
