#include "tests/detect_support.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace test {

reference::answer ask(const u8* text, i32 pos, i32 end) {
    const auto request = std::make_unique<pvzan_detection_request>();
    std::memset(request.get(), 'x', sizeof *request); // what the call does not set shows
    request->text = text;
    request->textPos = pos;
    request->textEnd = end;
    reference::answer a;
    a.result = cconvChkEncode(request.get());
    EXPECT_EQ(request->text, text);
    EXPECT_EQ(request->textPos, pos);
    EXPECT_EQ(request->textEnd, end);
    a.name = std::string(request->encodingName, ::strnlen(request->encodingName, text_bytes));
    a.declared = request->xmlDeclared;
    a.marked = request->bomFound;
    a.big_endian = request->bigEndian;
    a.newline = request->newlineKind;
    a.flags = request->resultFlags;
    return a;
}

reference::answer ask(std::string_view text, std::size_t pos) {
    return ask(reinterpret_cast<const u8*>(text.data()), static_cast<i32>(pos),
               static_cast<i32>(text.size()));
}

lone_page::lone_page() : size_(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))) {
    void* pages = ::mmap(nullptr, 3 * size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) {
        throw std::bad_alloc();
    }
    first_ = static_cast<u8*>(pages) + size_;
    ::mprotect(first_, size_, PROT_READ | PROT_WRITE);
}

lone_page::~lone_page() {
    ::munmap(first_ - size_, 3 * size_);
}

const u8* lone_page::at_start(std::string_view text) {
    std::ranges::copy(text, first_);
    return first_;
}

const u8* lone_page::at_end(std::string_view text) {
    u8* start = first_ + size_ - text.size();
    std::ranges::copy(text, start);
    return start;
}

} // namespace test
