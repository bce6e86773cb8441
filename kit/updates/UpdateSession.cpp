#include "kit/updates/UpdateSession.hpp"

#include "kit/updates/CurlLibrary.hpp"

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

CURL* easyFor(const CurlLibrary& lib, Transfer& t, const UpdateSession::Options& o, curl_slist* connectTo) {
    CURL* e = lib.easyInit();
    if (!e) return nullptr;
    const std::string agent(UpdateSession::userAgent);
    lib.easySetopt(e, CURLOPT_URL, t.request->url.c_str());
    // https only, for the first request and for every redirect: the feed rule is never relaxed.
    lib.easySetopt(e, CURLOPT_PROTOCOLS_STR, "https");
    lib.easySetopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    lib.easySetopt(e, CURLOPT_FOLLOWLOCATION, 1L);
    lib.easySetopt(e, CURLOPT_MAXREDIRS, 5L);
    lib.easySetopt(e, CURLOPT_USERAGENT, agent.c_str());
    lib.easySetopt(e, CURLOPT_NOSIGNAL, 1L);
    lib.easySetopt(e, CURLOPT_TIMEOUT_MS, static_cast<long>(std::ceil(o.timeout * 1000)));
    lib.easySetopt(e, CURLOPT_WRITEFUNCTION, onBody);
    lib.easySetopt(e, CURLOPT_WRITEDATA, &t);
    lib.easySetopt(e, CURLOPT_ACCEPT_ENCODING, "");  // what curl can decode; the limit counts decoded bytes
    if (o.caFile) lib.easySetopt(e, CURLOPT_CAINFO, o.caFile->c_str());
    if (connectTo) lib.easySetopt(e, CURLOPT_CONNECT_TO, connectTo);
    // No cookie engine is switched on and curl keeps no cache: nothing outlives the check.
    return e;
}

}  // namespace

std::vector<UpdateSession::Answer> UpdateSession::fetchAll(std::vector<Request>& requests, const Options& o) {
    std::vector<Answer> answers(requests.size());
    const auto& lib = CurlLibrary::get();
    if (!lib.loaded) return answers;
    std::vector<Transfer> transfers(requests.size());
    std::unique_ptr<CURLM, decltype(lib.multiCleanup)> multi(lib.multiInit(), lib.multiCleanup);
    if (!multi) return answers;
    std::vector<CURL*> easies(requests.size(), nullptr);
    // "::host:port": every host and port of every address, redirects included.
    std::unique_ptr<curl_slist, decltype(lib.slistFreeAll)> connectTo(
        o.connectTo ? lib.slistAppend(nullptr, ("::" + *o.connectTo).c_str()) : nullptr, lib.slistFreeAll);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        transfers[i] = {&requests[i], 0, o.maxBodyBytes, false};
        easies[i] = easyFor(lib, transfers[i], o, connectTo.get());
        if (!easies[i]) continue;
        lib.easySetopt(easies[i], CURLOPT_PRIVATE, reinterpret_cast<char*>(i));
        lib.multiAdd(multi.get(), easies[i]);
    }
    int running = 0;
    do {
        if (lib.multiPerform(multi.get(), &running) != CURLM_OK) break;
        int left = 0;
        while (CURLMsg* m = lib.multiInfoRead(multi.get(), &left)) {
            if (m->msg != CURLMSG_DONE) continue;
            char* index = nullptr;
            lib.easyGetinfo(m->easy_handle, CURLINFO_PRIVATE, &index);
            const auto i = reinterpret_cast<std::size_t>(index);
            lib.easyGetinfo(m->easy_handle, CURLINFO_RESPONSE_CODE, &answers[i].status);
            answers[i].reached = m->data.result == CURLE_OK && !transfers[i].dropped;
        }
        if (running > 0) lib.multiPoll(multi.get(), nullptr, 0, 1000, nullptr);
    } while (running > 0);
    for (CURL* e : easies) {
        if (!e) continue;
        lib.multiRemove(multi.get(), e);
        lib.easyCleanup(e);
    }
    return answers;
}

UpdateSession::Options UpdateSession::hostOptions() {
    Options o;
    const auto& h = quorv::host();
    if (!h.sandbox) return o;
    o.caFile = h.env("BRIMSTELL_SANDBOX_CA_FILE");
    // Only loopback: a sandbox never sends a request anywhere its address doesn't name.
    const auto at = h.env("BRIMSTELL_SANDBOX_FEEDS_AT");
    if (at && (at->starts_with("127.0.0.1:") || at->starts_with("localhost:"))) o.connectTo = *at;
    return o;
}

}  // namespace brimstell
