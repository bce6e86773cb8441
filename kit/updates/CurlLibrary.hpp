#pragma once
// libcurl, loaded the first time an update check goes out, so that the agent's hourly start and
// every command that asks no network don't pay for mapping it and the TLS libraries behind it.

#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>

namespace brimstell {

struct CurlLibrary {
    decltype(&::curl_global_init) globalInit = nullptr;
    decltype(&::curl_easy_init) easyInit = nullptr;
    decltype(&::curl_easy_setopt) easySetopt = nullptr;
    decltype(&::curl_easy_getinfo) easyGetinfo = nullptr;
    decltype(&::curl_easy_cleanup) easyCleanup = nullptr;
    decltype(&::curl_multi_init) multiInit = nullptr;
    decltype(&::curl_multi_add_handle) multiAdd = nullptr;
    decltype(&::curl_multi_remove_handle) multiRemove = nullptr;
    decltype(&::curl_multi_perform) multiPerform = nullptr;
    decltype(&::curl_multi_info_read) multiInfoRead = nullptr;
    decltype(&::curl_multi_poll) multiPoll = nullptr;
    decltype(&::curl_multi_cleanup) multiCleanup = nullptr;
    decltype(&::curl_slist_append) slistAppend = nullptr;
    decltype(&::curl_slist_free_all) slistFreeAll = nullptr;
    bool loaded = false;  // every function was found (and curl_global_init ran)

    // The library, loaded and initialised once; `loaded` false when it can't be had, and then
    // every check counts its sources as not reached.
    static const CurlLibrary& get();
};

}  // namespace brimstell
