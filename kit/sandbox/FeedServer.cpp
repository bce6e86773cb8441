#include "kit/sandbox/FeedServer.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <strings.h>
#include <sys/time.h>
#include <unistd.h>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <chrono>
#include <csignal>
#include <fstream>

namespace brimstell {
namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Cert = std::unique_ptr<X509, decltype(&X509_free)>;

void extension(X509* cert, X509* issuer, int nid, const char* value) {
    X509V3_CTX ctx;
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    if (X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value)) {
        X509_add_ext(cert, ext, -1);
        X509_EXTENSION_free(ext);
    }
}

// A P-256 certificate for name valid for a day, signed by issuer (itself when issuer is null).
Cert certificate(EVP_PKEY* key, const char* name, X509* issuer, EVP_PKEY* issuerKey, long serial,
                 const std::string& altNames = "") {
    Cert cert(X509_new(), X509_free);
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 86400);
    X509_set_pubkey(cert.get(), key);
    X509_NAME* subject = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
    X509* signer = issuer ? issuer : cert.get();
    X509_set_issuer_name(cert.get(), X509_get_subject_name(signer));
    if (issuer) {
        extension(cert.get(), signer, NID_subject_alt_name, ("IP:127.0.0.1,DNS:localhost" + altNames).c_str());
        extension(cert.get(), signer, NID_basic_constraints, "critical,CA:FALSE");
    } else {
        extension(cert.get(), signer, NID_basic_constraints, "critical,CA:TRUE");
        extension(cert.get(), signer, NID_key_usage, "critical,keyCertSign,cRLSign");
        extension(cert.get(), signer, NID_subject_key_identifier, "hash");
    }
    if (X509_sign(cert.get(), issuer ? issuerKey : key, EVP_sha256()) == 0) return Cert(nullptr, X509_free);
    return cert;
}

bool writePem(const std::string& file, X509* cert) {
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_file(file.c_str(), "w"), BIO_free);
    return bio && PEM_write_bio_X509(bio.get(), cert) == 1;
}

// The request's head (up to the blank line), or empty when the client went away first.
std::string readHead(SSL* ssl) {
    std::string head;
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < 16384) {
        const int n = SSL_read(ssl, buffer, sizeof buffer);
        if (n <= 0) return {};
        head.append(buffer, static_cast<std::size_t>(n));
    }
    return head;
}

// A header's value in a request head ("User-Agent"), matched without regard to case.
std::string header(const std::string& head, std::string_view name) {
    std::size_t at = head.find("\r\n");
    while (at != std::string::npos && at + 2 < head.size()) {
        const auto end = head.find("\r\n", at + 2);
        const std::string line = head.substr(at + 2, end - at - 2);
        const auto colon = line.find(':');
        if (colon == name.size() && strncasecmp(line.c_str(), name.data(), name.size()) == 0) {
            return line.substr(line.find_first_not_of(' ', colon + 1) == std::string::npos ? line.size()
                                                                                           : line.find_first_not_of(' ', colon + 1));
        }
        at = end;
    }
    return {};
}

std::string statusLine(int status) {
    const char* reason = status == 200 ? "OK" : status == 404 ? "Not Found" : "Other";
    return "HTTP/1.1 " + std::to_string(status) + " " + reason + "\r\n";
}

}  // namespace

struct FeedServer::Tls {
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> ctx{nullptr, SSL_CTX_free};
};

std::unique_ptr<FeedServer> FeedServer::start(const std::string& folder, const std::vector<std::string>& hostNames) {
    std::unique_ptr<FeedServer> s(new FeedServer());
    Key caKey(EVP_EC_gen("P-256"), EVP_PKEY_free);
    Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
    if (!caKey || !key) return nullptr;
    const Cert ca = certificate(caKey.get(), "Brimstell Sandbox Authority", nullptr, nullptr, 1);
    std::string altNames;
    for (const auto& name : hostNames) altNames += ",DNS:" + name;
    const Cert own = ca ? certificate(key.get(), "127.0.0.1", ca.get(), caKey.get(), 2, altNames) : Cert(nullptr, X509_free);
    s->caFile_ = folder + "/ca.pem";
    if (!own || !writePem(s->caFile_, ca.get())) return nullptr;
    s->tls_ = std::make_unique<Tls>();
    s->tls_->ctx.reset(SSL_CTX_new(TLS_server_method()));
    if (!s->tls_->ctx || SSL_CTX_use_certificate(s->tls_->ctx.get(), own.get()) != 1 ||
        SSL_CTX_use_PrivateKey(s->tls_->ctx.get(), key.get()) != 1) {
        return nullptr;
    }
    s->listenFd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (s->listenFd_ < 0 || ::bind(s->listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(s->listenFd_, 1024) != 0 || ::getsockname(s->listenFd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0 ||
        ::pipe(s->wakeFd_) != 0) {
        return nullptr;
    }
    ::fcntl(s->listenFd_, F_SETFD, FD_CLOEXEC);
    s->port_ = ntohs(addr.sin_port);
    s->acceptor_ = std::thread([p = s.get()] { p->acceptLoop(); });
    return s;
}

FeedServer::~FeedServer() {
    stopping_ = true;
    {
        std::lock_guard lock(mutex_);
        stopped_.notify_all();
    }
    if (wakeFd_[1] >= 0) (void)!::write(wakeFd_[1], "x", 1);
    if (acceptor_.joinable()) acceptor_.join();
    for (auto& w : workers_) w.join();
    for (int fd : {listenFd_, wakeFd_[0], wakeFd_[1]}) {
        if (fd >= 0) ::close(fd);
    }
}

void FeedServer::acceptLoop() {
    while (!stopping_) {
        pollfd fds[2] = {{listenFd_, POLLIN, 0}, {wakeFd_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 || (fds[1].revents & POLLIN)) continue;
        const int fd = ::accept(listenFd_, nullptr, nullptr);
        if (fd < 0) continue;
        std::lock_guard lock(mutex_);
        workers_.emplace_back([this, fd] { handle(fd); });
    }
}

void FeedServer::serve(const std::string& path, Answer answer) {
    std::lock_guard lock(mutex_);
    answers_[path] = std::move(answer);
}

std::string FeedServer::base() const { return "https://127.0.0.1:" + std::to_string(port_); }

std::vector<std::string> FeedServer::userAgents() {
    std::lock_guard lock(mutex_);
    return userAgents_;
}

std::vector<std::string> FeedServer::paths() {
    std::lock_guard lock(mutex_);
    return paths_;
}

std::optional<FeedServer::Answer> FeedServer::answerFor(const std::string& path) {
    std::lock_guard lock(mutex_);
    paths_.push_back(path);
    const auto it = answers_.find(path);
    if (it == answers_.end()) return std::nullopt;
    return it->second;
}

bool FeedServer::holdFor(double seconds) {
    std::unique_lock lock(mutex_);
    return !stopped_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return stopping_.load(); });
}

void FeedServer::handle(int fd) {
    // A client that hangs up before its answer must not end the process with SIGPIPE.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    timeval limit{10, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(tls_->ctx.get()), SSL_free);
    if (ssl && SSL_set_fd(ssl.get(), fd) == 1 && SSL_accept(ssl.get()) == 1) {
        const std::string head = readHead(ssl.get());
        const auto sp = head.find(' ');
        const std::string path = sp == std::string::npos ? "" : head.substr(sp + 1, head.find(' ', sp + 1) - sp - 1);
        {
            std::lock_guard lock(mutex_);
            userAgents_.push_back(header(head, "User-Agent"));
        }
        const auto answer = head.empty() ? std::nullopt : answerFor(path);
        const bool go = !answer || (answer->never ? (holdFor(maxHold), false) : holdFor(answer->delay));
        if (go && !head.empty()) {
            const int status = answer ? answer->status : 404;
            const std::string body = answer ? answer->body : "";
            const std::string reply = statusLine(status) + "Content-Type: application/xml\r\nContent-Length: " +
                                      std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
            SSL_write(ssl.get(), reply.data(), static_cast<int>(reply.size()));
            SSL_shutdown(ssl.get());
        }
    }
    ::close(fd);
}

}  // namespace brimstell
