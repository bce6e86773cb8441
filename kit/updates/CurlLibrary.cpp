#include "kit/updates/CurlLibrary.hpp"

#include "support/posix/SharedLibrary.hpp"

namespace brimstell {
namespace {

constexpr const char* libraryName = "libcurl.so.4";

using quorv::lookUp;

CurlLibrary load() {
    CurlLibrary c;
    void* handle = quorv::openLibrary(libraryName);
    if (!handle) return c;
    const bool all = lookUp(handle, c.globalInit, "curl_global_init") && lookUp(handle, c.easyInit, "curl_easy_init") &&
                     lookUp(handle, c.easySetopt, "curl_easy_setopt") && lookUp(handle, c.easyGetinfo, "curl_easy_getinfo") &&
                     lookUp(handle, c.easyCleanup, "curl_easy_cleanup") && lookUp(handle, c.multiInit, "curl_multi_init") &&
                     lookUp(handle, c.multiAdd, "curl_multi_add_handle") &&
                     lookUp(handle, c.multiRemove, "curl_multi_remove_handle") &&
                     lookUp(handle, c.multiPerform, "curl_multi_perform") &&
                     lookUp(handle, c.multiInfoRead, "curl_multi_info_read") && lookUp(handle, c.multiPoll, "curl_multi_poll") &&
                     lookUp(handle, c.multiCleanup, "curl_multi_cleanup") &&
                     lookUp(handle, c.slistAppend, "curl_slist_append") &&
                     lookUp(handle, c.slistFreeAll, "curl_slist_free_all");
    c.loaded = all && c.globalInit(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return c;
}

}  // namespace

const CurlLibrary& CurlLibrary::get() {
    static const CurlLibrary library = load();  // thread-safe first use
    return library;
}

}  // namespace brimstell
