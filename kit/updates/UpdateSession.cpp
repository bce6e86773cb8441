#include "kit/updates/UpdateSession.hpp"

#include <curl/curl.h>

#include <cmath>
#include <memory>
#include <mutex>

#include "support/host/Host.hpp"

namespace brimstell {
namespace {

struct Transfer {
    UpdateSession::Request* request = nullptr;
    std::size_t received = 0;
    std::size_t limit = 0;
    bool dropped = false;
};

std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) {
    auto* t = static_cast<Transfer*>(user);
    const std::size_t n = size * count;
    t->received += n;
    if (t->received > t->limit || (t->request->sink && !t->request->sink(std::string_view(data, n)))) {
        t->dropped = true;
        return 0;  // curl ends the transfer with a write error
    }
    return n;
}

void initialiseOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

CURL* easyFor(Transfer& t, const UpdateSession::Options& o) {
    CURL* e = curl_easy_init();
    if (!e) return nullptr;
    const std::string agent(UpdateSession::userAgent);
    curl_easy_setopt(e, CURLOPT_URL, t.request->url.c_str());
    // https only, for the first request and for every redirect: the feed rule is never relaxed.
    curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(e, CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(e, CURLOPT_USERAGENT, agent.c_str());
    curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, static_cast<long>(std::ceil(o.timeout * 1000)));
    curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(e, CURLOPT_WRITEDATA, &t);
    curl_easy_setopt(e, CURLOPT_ACCEPT_ENCODING, "");  // what curl can decode; the limit counts decoded bytes
    if (o.caFile) curl_easy_setopt(e, CURLOPT_CAINFO, o.caFile->c_str());
    // No cookie engine is switched on and curl keeps no cache: nothing outlives the check.
    return e;
}

}  // namespace

std::vector<UpdateSession::Answer> UpdateSession::fetchAll(std::vector<Request>& requests, const Options& o) {
    initialiseOnce();
    std::vector<Answer> answers(requests.size());
    std::vector<Transfer> transfers(requests.size());
    std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> multi(curl_multi_init(), curl_multi_cleanup);
    if (!multi) return answers;
    std::vector<CURL*> easies(requests.size(), nullptr);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        transfers[i] = {&requests[i], 0, o.maxBodyBytes, false};
        easies[i] = easyFor(transfers[i], o);
        if (!easies[i]) continue;
        curl_easy_setopt(easies[i], CURLOPT_PRIVATE, reinterpret_cast<char*>(i));
        curl_multi_add_handle(multi.get(), easies[i]);
    }
    int running = 0;
    do {
        if (curl_multi_perform(multi.get(), &running) != CURLM_OK) break;
        int left = 0;
        while (CURLMsg* m = curl_multi_info_read(multi.get(), &left)) {
            if (m->msg != CURLMSG_DONE) continue;
            char* index = nullptr;
            curl_easy_getinfo(m->easy_handle, CURLINFO_PRIVATE, &index);
            const auto i = reinterpret_cast<std::size_t>(index);
            curl_easy_getinfo(m->easy_handle, CURLINFO_RESPONSE_CODE, &answers[i].status);
            answers[i].reached = m->data.result == CURLE_OK && !transfers[i].dropped;
        }
        if (running > 0) curl_multi_poll(multi.get(), nullptr, 0, 1000, nullptr);
    } while (running > 0);
    for (CURL* e : easies) {
        if (!e) continue;
        curl_multi_remove_handle(multi.get(), e);
        curl_easy_cleanup(e);
    }
    return answers;
}

UpdateSession::Options UpdateSession::hostOptions() {
    Options o;
    const auto& h = quorv::host();
    if (h.sandbox) o.caFile = h.env("BRIMSTELL_SANDBOX_CA_FILE");
    return o;
}

}  // namespace brimstell
