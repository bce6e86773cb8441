#include "kit/updates/CurlLibrary.hpp"

#include <dlfcn.h>

namespace brimstell {
namespace {

constexpr const char* libraryName = "libcurl.so.4";

template <class F>
bool find(void* handle, F& slot, const char* name) {
    slot = reinterpret_cast<F>(::dlsym(handle, name));
    return slot != nullptr;
}

CurlLibrary load() {
    CurlLibrary c;
#ifdef __APPLE__
    void* handle = RTLD_DEFAULT;  // linked there as usual
#else
    void* handle = ::dlopen(libraryName, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
#endif
    if (!handle) return c;
    const bool all = find(handle, c.globalInit, "curl_global_init") && find(handle, c.easyInit, "curl_easy_init") &&
                     find(handle, c.easySetopt, "curl_easy_setopt") && find(handle, c.easyGetinfo, "curl_easy_getinfo") &&
                     find(handle, c.easyCleanup, "curl_easy_cleanup") && find(handle, c.multiInit, "curl_multi_init") &&
                     find(handle, c.multiAdd, "curl_multi_add_handle") &&
                     find(handle, c.multiRemove, "curl_multi_remove_handle") &&
                     find(handle, c.multiPerform, "curl_multi_perform") &&
                     find(handle, c.multiInfoRead, "curl_multi_info_read") && find(handle, c.multiPoll, "curl_multi_poll") &&
                     find(handle, c.multiCleanup, "curl_multi_cleanup");
    c.loaded = all && c.globalInit(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return c;
}

}  // namespace

const CurlLibrary& CurlLibrary::get() {
    static const CurlLibrary library = load();  // thread-safe first use
    return library;
}

}  // namespace brimstell
