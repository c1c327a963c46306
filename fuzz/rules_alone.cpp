// The driver once more, under another name and without the fast path.
#include "fuzz/rules_alone.h"
#include "cconv/bulk.h"
#include "cconv/lifecycle.h"

namespace {

// Never runs, never learns.
class no_guide {
public:
    explicit no_guide(const session*) {}
    void run(const session*) const {}
    void begin(const session*) const {}
    void learn(const session*) const {}
    void leave(const session*) const {}
};

} // namespace

#define bulk_guide no_guide
#define cconvInitConvert unused_init
#define cconvChgCharset unused_change
#define cconvTermConvert unused_close
#define cconvConvert rules_alone_convert
extern "C" {
u32 unused_init(session*, const target_options*, const char*);
u32 unused_change(session*, const source_options*, const char*);
u32 unused_close(session*);
}
#include "cconv/convert.cpp"
