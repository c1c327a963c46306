#include "bench/contenders.h"

#include "pvzan.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iconv.h>

#ifdef BENCH_WITH_ICU
#include <unicode/ucnv.h>
#endif

namespace bench {

namespace {

// ---- This library ------------------------------------------------------------------------------

std::string plain_name(const char* name, std::uint32_t& big_endian) {
    std::string plain = name;
    big_endian = plain.ends_with("le") ? 0 : 1;
    if (big_endian == 0) {
        plain.resize(plain.size() - 2);
    }
    return plain;
}

class pvzan_contender : public contender {
public:
    bool open(const charset_pair& pair, bool normalise_newlines) {
        pvzan_target_options target{};
        pvzan_source_options source{};
        target.convertNewline = normalise_newlines ? 1 : 0;
        target.newlineMode = PVZAN_NEWLINE_LF;
        const std::string to = plain_name(pair.to.pvzan, target.dstBigEndian);
        const std::string from = plain_name(pair.from.pvzan, source.srcBigEndian);
        session_->outBuf = out_.data();
        session_->outLen = static_cast<std::int32_t>(out_.size());
        return cconvInitConvert(session_.get(), &target, to.c_str()) == PVZAN_DONE &&
               cconvChgCharset(session_.get(), &source, from.c_str()) == PVZAN_DONE;
    }

    progress step(bytes_view block) override {
        pvzan_session& s = *session_;
        s.inBuf = block.data();
        s.inPos = 0;
        s.inLen = static_cast<std::int32_t>(block.size());
        s.outPos = 0;
        const std::uint32_t status = cconvConvert(&s);
        return {static_cast<std::size_t>(s.inPos), static_cast<std::size_t>(s.outPos),
                status != PVZAN_DONE && status != PVZAN_INPUT_INCOMPLETE};
    }

    progress finish() override {
        session_->outPos = 0;
        const bool failed = cconvTermConvert(session_.get()) != PVZAN_DONE;
        return {0, static_cast<std::size_t>(session_->outPos), failed};
    }

private:
    std::unique_ptr<pvzan_session> session_ = std::make_unique<pvzan_session>();
};

// ---- iconv(3) ----------------------------------------------------------------------------------

class iconv_contender : public contender {
public:
    explicit iconv_contender(iconv_t handle) : handle_(handle) {}
    iconv_contender(const iconv_contender&) = delete;
    iconv_contender& operator=(const iconv_contender&) = delete;
    ~iconv_contender() override { ::iconv_close(handle_); }

    void restart() override { ::iconv(handle_, nullptr, nullptr, nullptr, nullptr); }

    progress step(bytes_view block) override {
        char* in = const_cast<char*>(reinterpret_cast<const char*>(block.data()));
        char* out = reinterpret_cast<char*>(out_.data());
        std::size_t in_left = block.size(), out_left = out_.size();
        const std::size_t result = ::iconv(handle_, &in, &in_left, &out, &out_left);
        return {block.size() - in_left, out_.size() - out_left,
                result == static_cast<std::size_t>(-1) && errno != EINVAL};
    }

    progress finish() override {
        char* out = reinterpret_cast<char*>(out_.data());
        std::size_t out_left = out_.size();
        ::iconv(handle_, nullptr, nullptr, &out, &out_left);
        return {0, out_.size() - out_left, false};
    }

private:
    iconv_t handle_;
};

// ---- ICU ---------------------------------------------------------------------------------------

#ifdef BENCH_WITH_ICU
class icu_contender : public contender {
public:
    icu_contender(const char* from, const char* to) {
        UErrorCode error = U_ZERO_ERROR;
        from_ = ucnv_open(from, &error);
        to_ = ucnv_open(to, &error);
        ucnv_setToUCallBack(from_, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
        ucnv_setFromUCallBack(to_, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
        opened_ = U_SUCCESS(error) != 0;
        icu_contender::restart();
    }
    icu_contender(const icu_contender&) = delete;
    icu_contender& operator=(const icu_contender&) = delete;
    ~icu_contender() override {
        ucnv_close(from_);
        ucnv_close(to_);
    }
    [[nodiscard]] bool opened() const { return opened_; }

    void restart() override {
        ucnv_reset(from_);
        ucnv_reset(to_);
        pivot_source_ = pivot_target_ = pivot_;
    }

    progress step(bytes_view block) override { return convert(block, false); }
    progress finish() override { return convert({}, true); }

private:
    progress convert(bytes_view block, bool last) {
        const char* in = reinterpret_cast<const char*>(block.data());
        char* out = reinterpret_cast<char*>(out_.data());
        UErrorCode error = U_ZERO_ERROR;
        ucnv_convertEx(to_, from_, &out, out + out_.size(), &in, in + block.size(), pivot_,
                       &pivot_source_, &pivot_target_, pivot_ + std::size(pivot_), 0, last ? 1 : 0,
                       &error);
        return {block.size(), static_cast<std::size_t>(out - reinterpret_cast<char*>(out_.data())),
                U_FAILURE(error) != 0};
    }

    UConverter *from_ = nullptr, *to_ = nullptr;
    bool opened_ = false;
    UChar pivot_[4096];
    UChar *pivot_source_ = nullptr, *pivot_target_ = nullptr;
};
#endif

// ---- encoding_rs -------------------------------------------------------------------------------

#ifdef BENCH_WITH_ENCODING_RS
extern "C" {
struct encoding_rs_stream;
encoding_rs_stream* encoding_rs_open(const char* from, const char* to);
void encoding_rs_restart(encoding_rs_stream*);
// False: malformed or unmappable.
bool encoding_rs_step(encoding_rs_stream*, const std::uint8_t* in, std::size_t in_len,
                      std::uint8_t* out, std::size_t out_len, bool last, std::size_t* read,
                      std::size_t* written);
void encoding_rs_close(encoding_rs_stream*);
}

class encoding_rs_contender : public contender {
public:
    explicit encoding_rs_contender(encoding_rs_stream* stream) : stream_(stream) {}
    encoding_rs_contender(const encoding_rs_contender&) = delete;
    encoding_rs_contender& operator=(const encoding_rs_contender&) = delete;
    ~encoding_rs_contender() override { encoding_rs_close(stream_); }

    void restart() override { encoding_rs_restart(stream_); }
    progress step(bytes_view block) override { return convert(block, false); }
    progress finish() override { return convert({}, true); }

private:
    progress convert(bytes_view block, bool last) {
        progress p;
        p.failed = !encoding_rs_step(stream_, block.data(), block.size(), out_.data(), out_.size(),
                                     last, &p.read, &p.written);
        return p;
    }

    encoding_rs_stream* stream_;
};
#endif

// ---- memcpy(3), the limit ----------------------------------------------------------------------

class memcpy_contender : public contender {
public:
    progress step(bytes_view block) override {
        std::memcpy(out_.data(), block.data(), block.size());
        asm volatile("" : : "r"(out_.data()) : "memory");
        return {block.size(), block.size(), false};
    }
};

} // namespace

std::unique_ptr<contender> make_pvzan(const charset_pair& pair, bool normalise_newlines) {
    auto made = std::make_unique<pvzan_contender>();
    return made->open(pair, normalise_newlines) ? std::move(made) : nullptr;
}

std::unique_ptr<contender> make_iconv(const charset_pair& pair) {
    const iconv_t handle = ::iconv_open(pair.to.iconv, pair.from.iconv);
    // The error value is what iconv_open documents: (iconv_t)-1.
    return reinterpret_cast<std::intptr_t>(handle) != -1 ? std::make_unique<iconv_contender>(handle)
                                                         : nullptr;
}

std::unique_ptr<contender> make_icu([[maybe_unused]] const charset_pair& pair) {
#ifdef BENCH_WITH_ICU
    if (pair.from.icu != nullptr && pair.to.icu != nullptr) {
        auto made = std::make_unique<icu_contender>(pair.from.icu, pair.to.icu);
        return made->opened() ? std::move(made) : nullptr;
    }
#endif
    return nullptr;
}

std::unique_ptr<contender> make_encoding_rs([[maybe_unused]] const charset_pair& pair) {
#ifdef BENCH_WITH_ENCODING_RS
    if (pair.from.encoding_rs != nullptr && pair.to.encoding_rs != nullptr) {
        if (encoding_rs_stream* s = encoding_rs_open(pair.from.encoding_rs, pair.to.encoding_rs)) {
            return std::make_unique<encoding_rs_contender>(s);
        }
    }
#endif
    return nullptr;
}

std::unique_ptr<contender> make_memcpy() {
    return std::make_unique<memcpy_contender>();
}

} // namespace bench
