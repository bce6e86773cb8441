#pragma once
// A system library opened the first time its work comes, not at start, the way systemd loads its
// own optional libraries: resolved at once, kept for the life of the process, never unloaded.
// Each user lists the functions it calls and looks every one up by its own name.

#include <dlfcn.h>

namespace quorv {

// The opened library, or nullptr when it can't be had. On macOS the libraries are linked as usual
// and their functions are found among the program's own.
inline void* openLibrary(const char* name) {
#ifdef __APPLE__
    (void)name;
    return RTLD_DEFAULT;
#else
    if (!name || !*name) return nullptr;  // dlopen("") would hand back the program itself
    return ::dlopen(name, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
#endif
}

// Fills slot with the function called symbol; false when the library lacks it.
template <class F>
bool lookUp(void* handle, F& slot, const char* symbol) {
    slot = reinterpret_cast<F>(::dlsym(handle, symbol));
    return slot != nullptr;
}

}  // namespace quorv
