#include "bench/contenders.h"

#include "pvzan.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <iconv.h>

#ifdef BENCH_WITH_ICU
#include <unicode/ucnv.h>
#endif
#ifdef BENCH_WITH_PYTHON
#define PY_SSIZE_T_CLEAN
#include <Python.h>
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

// The functions of this build, or of another one.
struct library {
    decltype(&cconvInitConvert) init = cconvInitConvert;
    decltype(&cconvChgCharset) choose = cconvChgCharset;
    decltype(&cconvConvert) convert = cconvConvert;
    decltype(&cconvTermConvert) finish = cconvTermConvert;
};

bool load(const char* file, library& made) {
    void* const handle = ::dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        std::fprintf(stderr, "%s\n", ::dlerror());
        return false;
    }
    const auto get = [&](const char* name, auto& function) {
        function =
            reinterpret_cast<std::remove_reference_t<decltype(function)>>(::dlsym(handle, name));
        return function != nullptr;
    };
    decltype(&my_init) start = nullptr;
    decltype(&ZAN_setCharsetPath) set_path = nullptr;
    if (!get("my_init", start) || !get("ZAN_setCharsetPath", set_path) ||
        !get("cconvInitConvert", made.init) || !get("cconvChgCharset", made.choose) ||
        !get("cconvConvert", made.convert) || !get("cconvTermConvert", made.finish)) {
        std::fprintf(stderr, "%s is no such library\n", file);
        return false;
    }
    start();
    set_path(PVZAN_BASE2_DIR);
    return true;
}

class pvzan_contender : public contender {
public:
    explicit pvzan_contender(const library& of) : library_(of) {}

    bool open(const charset_pair& pair, bool normalise_newlines) {
        pvzan_target_options target{};
        pvzan_source_options source{};
        target.convertNewline = normalise_newlines ? 1 : 0;
        target.newlineMode = PVZAN_NEWLINE_LF;
        const std::string to = plain_name(pair.to.pvzan, target.dstBigEndian);
        const std::string from = plain_name(pair.from.pvzan, source.srcBigEndian);
        session_->outBuf = out_.data();
        session_->outLen = static_cast<std::int32_t>(out_.size());
        const bool opened = library_.init(session_.get(), &target, to.c_str()) == PVZAN_DONE &&
                            library_.choose(session_.get(), &source, from.c_str()) == PVZAN_DONE;
        *at_start_ = *session_;
        return opened;
    }

    void restart() override { *session_ = *at_start_; }

    progress step(bytes_view block) override {
        pvzan_session& s = *session_;
        s.inBuf = block.data();
        s.inPos = 0;
        s.inLen = static_cast<std::int32_t>(block.size());
        s.outPos = 0;
        s.outLen = static_cast<std::int32_t>(room_);
        const std::uint32_t status = library_.convert(&s);
        return {static_cast<std::size_t>(s.inPos), static_cast<std::size_t>(s.outPos),
                status != PVZAN_DONE && status != PVZAN_INPUT_INCOMPLETE};
    }

    progress finish() override {
        session_->outPos = 0;
        session_->outLen = static_cast<std::int32_t>(out_.size());
        const bool failed = library_.finish(session_.get()) != PVZAN_DONE;
        return {0, static_cast<std::size_t>(session_->outPos), failed};
    }

private:
    library library_;
    std::unique_ptr<pvzan_session> session_ = std::make_unique<pvzan_session>(),
                                   at_start_ = std::make_unique<pvzan_session>();
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

// ---- Python's incremental codecs ---------------------------------------------------------------

#ifdef BENCH_WITH_PYTHON
constexpr char python_source[] = R"(
import codecs
def open_stream(source, target):
    decode = codecs.getincrementaldecoder(source)().decode
    encode = codecs.getincrementalencoder(target)().encode
    return lambda block, last: encode(decode(block, last), last)
)";

// Their output stays where they made it.
class python_contender : public contender {
public:
    explicit python_contender(const charset_pair& pair) : pair_(pair) {
        static PyObject* const names = [] {
            Py_InitializeEx(0);
            PyRun_SimpleString(python_source);
            return PyModule_GetDict(PyImport_AddModule("__main__"));
        }();
        open_ = PyDict_GetItemString(names, "open_stream");
        python_contender::restart();
    }
    python_contender(const python_contender&) = delete;
    python_contender& operator=(const python_contender&) = delete;
    ~python_contender() override { Py_CLEAR(stream_); }

    void restart() override {
        Py_CLEAR(stream_);
        stream_ = PyObject_CallFunction(open_, "ss", pair_.from.python, pair_.to.python);
    }
    progress step(bytes_view block) override { return convert(block, Py_False); }
    progress finish() override { return convert({}, Py_True); }

private:
    progress convert(bytes_view block, PyObject* last) {
        char empty[1];
        char* const begin =
            block.empty() ? empty : const_cast<char*>(reinterpret_cast<const char*>(block.data()));
        PyObject* const view =
            PyMemoryView_FromMemory(begin, static_cast<Py_ssize_t>(block.size()), PyBUF_READ);
        PyObject* const written = PyObject_CallFunctionObjArgs(stream_, view, last, nullptr);
        Py_DECREF(view);
        if (written == nullptr) {
            PyErr_Clear();
            return {0, 0, true};
        }
        const auto size = static_cast<std::size_t>(PyBytes_Size(written));
        Py_DECREF(written);
        return {block.size(), size, false};
    }

    charset_pair pair_;
    PyObject *open_ = nullptr, *stream_ = nullptr;
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
    auto made = std::make_unique<pvzan_contender>(library{});
    return made->open(pair, normalise_newlines) ? std::move(made) : nullptr;
}

std::unique_ptr<contender> make_older(const char* file, const charset_pair& pair,
                                      bool normalise_newlines) {
    static library older;
    static const bool loaded = load(file, older);
    auto made = std::make_unique<pvzan_contender>(older);
    return loaded && made->open(pair, normalise_newlines) ? std::move(made) : nullptr;
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

std::unique_ptr<contender> make_python([[maybe_unused]] const charset_pair& pair) {
#ifdef BENCH_WITH_PYTHON
    return std::make_unique<python_contender>(pair);
#else
    return nullptr;
#endif
}

std::unique_ptr<contender> make_memcpy() {
    return std::make_unique<memcpy_contender>();
}

} // namespace bench
