// Conversion between a program's streams. Part of pvzan.hpp.
#ifndef PVZAN_FILTER_HPP
#define PVZAN_FILTER_HPP

#include "converter.hpp"

#include <array>
#include <streambuf>

namespace pvzan {

// Converts what is written to it and passes it on to another buffer. finish closes the text, or
// else the destructor does. If there is a fault without a handler, or if the buffer accepts no
// more, writing fails.
//
//     pvzan::output_filter filter(file.rdbuf(), "utf-8", "shift_jis");
//     std::ostream out(&filter);
class output_filter : public std::streambuf {
public:
    output_filter(std::streambuf* to, const charset& from, const charset& target, options how = {})
        : to_(to), converter_(from, target, std::move(how)),
          stream_(converter_, [this](std::string_view text) { pass_on(text); }) {
        setp(room_.data(), room_.data() + room_.size());
    }
    ~output_filter() override { finish(); }
    output_filter(const output_filter&) = delete;
    output_filter& operator=(const output_filter&) = delete;

    // Closes the text. False if anything went wrong; so_far says where.
    bool finish() {
        const bool fed = feed();
        return stream_.finish() && fed && !failed_ && to_->pubsync() == 0;
    }
    const summary& so_far() const { return stream_.so_far(); }

protected:
    int_type overflow(int_type c) override {
        if (!feed()) {
            return traits_type::eof();
        }
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }
    int sync() override { return feed() && to_->pubsync() == 0 ? 0 : -1; }

private:
    bool feed() {
        const auto length = static_cast<std::size_t>(pptr() - pbase());
        const bool fed = stream_.feed(std::string_view(pbase(), length)) && !failed_;
        setp(room_.data(), room_.data() + room_.size());
        return fed;
    }
    void pass_on(std::string_view text) {
        const auto length = static_cast<std::streamsize>(text.size());
        failed_ = failed_ || to_->sputn(text.data(), length) != length;
    }

    std::streambuf* to_;
    bool failed_ = false;
    std::array<char, 16384> room_ = {};
    converter converter_;
    stream stream_;
};

// Reads from another buffer and converts. At a fault without a handler the text ends, and the
// status of so_far is not done.
//
//     pvzan::input_filter filter(file.rdbuf(), "euc-jp", "utf-8");
//     std::istream in(&filter);
class input_filter : public std::streambuf {
public:
    input_filter(std::streambuf* source, const charset& from, const charset& to, options how = {})
        : source_(source), converter_(from, to, std::move(how)),
          stream_(converter_, [this](std::string_view text) { text_ += text; }) {}
    input_filter(const input_filter&) = delete;
    input_filter& operator=(const input_filter&) = delete;

    const summary& so_far() const { return stream_.so_far(); }

protected:
    int_type underflow() override {
        text_.clear();
        while (text_.empty() && !ended_) {
            const std::streamsize length =
                source_->sgetn(room_.data(), static_cast<std::streamsize>(room_.size()));
            ended_ =
                length <= 0 ||
                !stream_.feed(std::string_view(room_.data(), static_cast<std::size_t>(length)));
            if (ended_) {
                stream_.finish();
            }
        }
        setg(text_.data(), text_.data(), text_.data() + text_.size());
        return text_.empty() ? traits_type::eof() : traits_type::to_int_type(text_[0]);
    }

private:
    std::streambuf* source_;
    std::string text_; // converted, but not read yet
    bool ended_ = false;
    std::array<char, 16384> room_ = {};
    converter converter_;
    stream stream_;
};

} // namespace pvzan
#endif
