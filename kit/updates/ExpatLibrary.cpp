#include "kit/updates/ExpatLibrary.hpp"

#include "support/posix/SharedLibrary.hpp"

namespace brimstell {
namespace {

constexpr const char* libraryName = "libexpat.so.1";

bool load(ExpatLibrary& lib) {
    void* handle = quorv::openLibrary(libraryName);
    bool complete = handle != nullptr;
#define BRIMSTELL_EXPAT_LOOKUP(fn) complete = complete && quorv::lookUp(handle, lib.fn, #fn);
    BRIMSTELL_EXPAT_FUNCTIONS(BRIMSTELL_EXPAT_LOOKUP)
#undef BRIMSTELL_EXPAT_LOOKUP
    return complete;
}

}  // namespace

const ExpatLibrary* ExpatLibrary::get() {
    static const ExpatLibrary* const loaded = [] {
        static ExpatLibrary lib;
        return load(lib) ? &lib : nullptr;
    }();  // thread-safe first use
    return loaded;
}

}  // namespace brimstell
