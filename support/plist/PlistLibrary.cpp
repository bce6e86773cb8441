#include "support/plist/PlistLibrary.hpp"

#include <cstdio>
#include <cstdlib>

#include "support/posix/SharedLibrary.hpp"

namespace quorv::plist {
namespace {

constexpr const char* libraryName = "libplist-2.0.so.3";

PlistLibrary load() {
    PlistLibrary lib;
    void* handle = openLibrary(libraryName);
    const char* missing = handle ? nullptr : libraryName;
#define QUORV_PLIST_LOOKUP(fn)                                                   \
    if (handle && !missing) {                                                    \
        if (!lookUp(handle, lib.fn, #fn)) missing = #fn;                         \
    }
    QUORV_PLIST_FUNCTIONS(QUORV_PLIST_LOOKUP)
#undef QUORV_PLIST_LOOKUP
    if (missing) {
        std::fprintf(stderr, "brimstell: %s can't be loaded from %s; property lists can't be read.\n", missing,
                     libraryName);
        std::_Exit(127);
    }
    return lib;
}

}  // namespace

const PlistLibrary& library() {
    static const PlistLibrary loaded = load();  // thread-safe first use
    return loaded;
}

}  // namespace quorv::plist
