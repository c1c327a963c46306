#include "bench/converters.h"

#include "pvzan.h"

#include <algorithm>
#include <cstring>
#include <iconv.h>

#ifdef BENCH_WITH_ICU
#include <unicode/ucnv.h>
#endif

namespace bench {

namespace {

// Little-endian names are ours by an option.
std::string library_name(const char* name, bool& big_endian) {
    std::string plain = name;
    big_endian = !plain.ends_with("le");
    if (!big_endian) {
        plain.resize(plain.size() - 2);
    }
    return plain;
}

class pvzan_converter : public converter {
public:
    bool open(const pair_name& pair, bool normalise_newlines) {
        pvzan_target_options target{};
        pvzan_source_options source{};
        bool big = true;
        target.convertNewline = normalise_newlines ? 1 : 0;
        target.newlineMode = PVZAN_NEWLINE_LF;
        const std::string to = library_name(pair.to, big);
        target.dstBigEndian = big ? 1 : 0;
        if (cconvInitConvert(session_.get(), &target, to.c_str()) != PVZAN_DONE) {
            return false;
        }
        const std::string from = library_name(pair.from, big);
        source.srcBigEndian = big ? 1 : 0;
        return cconvChgCharset(session_.get(), &source, from.c_str()) == PVZAN_DONE;
    }

    std::size_t run(bytes_view text) override {
        pvzan_session& s = *session_;
        std::size_t written = 0;
        s.outBuf = out_.data();
        s.outLen = static_cast<std::int32_t>(out_.size());
        for (std::size_t at = 0; at < text.size();) {
            const bytes_view block = text.subspan(at, std::min(block_bytes, text.size() - at));
            s.inBuf = block.data();
            s.inPos = 0;
            s.inLen = static_cast<std::int32_t>(block.size());
            s.outPos = 0;
            const std::uint32_t status = cconvConvert(&s);
            if (status != PVZAN_DONE && status != PVZAN_INPUT_INCOMPLETE) {
                return 0;
            }
            written += static_cast<std::size_t>(s.outPos);
            at += static_cast<std::size_t>(s.inPos);
        }
        s.outPos = 0;
        cconvTermConvert(&s);
        return written + static_cast<std::size_t>(s.outPos);
    }

private:
    std::unique_ptr<pvzan_session> session_ = std::make_unique<pvzan_session>();
};

class iconv_converter : public converter {
public:
    explicit iconv_converter(const pair_name& pair)
        : handle_(::iconv_open(pair.iconv_to, pair.iconv_from)) {}
    ~iconv_converter() override { ::iconv_close(handle_); }

    std::size_t run(bytes_view text) override {
        std::size_t written = 0;
        ::iconv(handle_, nullptr, nullptr, nullptr, nullptr);
        for (std::size_t at = 0; at < text.size();) {
            const bytes_view block = text.subspan(at, std::min(block_bytes, text.size() - at));
            char* in = const_cast<char*>(reinterpret_cast<const char*>(block.data()));
            char* out = reinterpret_cast<char*>(out_.data());
            std::size_t in_left = block.size(), out_left = out_.size();
            if (::iconv(handle_, &in, &in_left, &out, &out_left) == static_cast<std::size_t>(-1) &&
                errno != EINVAL) {
                return 0;
            }
            if (in_left == block.size()) {
                return 0;
            }
            at += block.size() - in_left;
            written += out_.size() - out_left;
        }
        return written;
    }

private:
    iconv_t handle_;
};

#ifdef BENCH_WITH_ICU
class icu_converter : public converter {
public:
    explicit icu_converter(const pair_name& pair) {
        UErrorCode error = U_ZERO_ERROR;
        from_ = ucnv_open(pair.icu_from, &error);
        to_ = ucnv_open(pair.icu_to, &error);
        failed_ = U_FAILURE(error) != 0;
    }
    ~icu_converter() override {
        ucnv_close(from_);
        ucnv_close(to_);
    }

    std::size_t run(bytes_view text) override {
        if (failed_) {
            return 0;
        }
        std::size_t written = 0;
        ucnv_reset(from_);
        ucnv_reset(to_);
        UChar* pivot_source = pivot_;
        UChar* pivot_target = pivot_;
        bool reset = true;
        for (std::size_t at = 0; at < text.size();) {
            const bytes_view block = text.subspan(at, std::min(block_bytes, text.size() - at));
            const char* in = reinterpret_cast<const char*>(block.data());
            char* out = reinterpret_cast<char*>(out_.data());
            UErrorCode error = U_ZERO_ERROR;
            ucnv_convertEx(to_, from_, &out, out + out_.size(), &in, in + block.size(), pivot_,
                           &pivot_source, &pivot_target, pivot_ + std::size(pivot_), reset, 0,
                           &error);
            reset = false;
            if (U_FAILURE(error)) {
                return 0;
            }
            at += block.size();
            written += static_cast<std::size_t>(out - reinterpret_cast<char*>(out_.data()));
        }
        return written;
    }

private:
    UConverter *from_ = nullptr, *to_ = nullptr;
    bool failed_ = true;
    UChar pivot_[4096];
};
#endif

class memcpy_converter : public converter {
public:
    std::size_t run(bytes_view text) override {
        for (std::size_t at = 0; at < text.size(); at += block_bytes) {
            std::memcpy(out_.data(), text.data() + at, std::min(block_bytes, text.size() - at));
            asm volatile("" : : "r"(out_.data()) : "memory");
        }
        return text.size();
    }
};

} // namespace

std::unique_ptr<converter> make_pvzan(const pair_name& pair, bool normalise_newlines) {
    auto made = std::make_unique<pvzan_converter>();
    return made->open(pair, normalise_newlines) ? std::move(made) : nullptr;
}

std::unique_ptr<converter> make_iconv(const pair_name& pair) {
    return std::make_unique<iconv_converter>(pair);
}

std::unique_ptr<converter> make_icu([[maybe_unused]] const pair_name& pair) {
#ifdef BENCH_WITH_ICU
    if (pair.icu_from != nullptr && pair.icu_to != nullptr) {
        return std::make_unique<icu_converter>(pair);
    }
#endif
    return nullptr;
}

std::unique_ptr<converter> make_memcpy() {
    return std::make_unique<memcpy_converter>();
}

} // namespace bench
