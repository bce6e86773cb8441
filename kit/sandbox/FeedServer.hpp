#pragma once
// The sandbox Mac's update server: real HTTPS on 127.0.0.1, with a certificate signed by an
// authority made for this server alone, so that only a process told to trust that authority's
// file (BRIMSTELL_SANDBOX_CA_FILE) accepts it. It serves feeds and App Store answers from memory;
// each answer may wait first, or never come. Every connection gets a thread, and everything
// stops when the server is destroyed (a held answer waits at most maxHold seconds).

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace brimstell {

class FeedServer {
public:
    struct Answer {
        std::string body;
        int status = 200;
        double delay = 0;    // seconds before the answer starts
        bool never = false;  // hold the request without answering
    };

    // Writes the authority ("ca.pem") into folder and listens on a free port; nullptr on failure.
    // The certificate holds 127.0.0.1 and localhost, and hostNames (say "*.example.com") for
    // clients that connect here in their stead.
    static std::unique_ptr<FeedServer> start(const std::string& folder, const std::vector<std::string>& hostNames = {});
    ~FeedServer();
    FeedServer(const FeedServer&) = delete;
    FeedServer& operator=(const FeedServer&) = delete;

    // Serves answer for requests whose path (query included) is exactly path.
    void serve(const std::string& path, Answer answer);
    // "https://127.0.0.1:<port>".
    std::string base() const;
    int port() const { return port_; }
    const std::string& caFile() const { return caFile_; }
    // The User-Agent of every request so far, and the paths asked.
    std::vector<std::string> userAgents();
    std::vector<std::string> paths();

    static constexpr double maxHold = 60;

private:
    FeedServer() = default;
    void acceptLoop();
    void handle(int fd);
    std::optional<Answer> answerFor(const std::string& path);
    bool holdFor(double seconds);  // false when the server stopped meanwhile

    struct Tls;
    std::unique_ptr<Tls> tls_;
    int listenFd_ = -1;
    int wakeFd_[2] = {-1, -1};
    int port_ = 0;
    std::string caFile_;
    std::atomic<bool> stopping_{false};
    std::mutex mutex_;
    std::condition_variable stopped_;
    std::map<std::string, Answer> answers_;
    std::vector<std::string> userAgents_;
    std::vector<std::string> paths_;
    std::vector<std::thread> workers_;
    std::thread acceptor_;
};

}  // namespace brimstell
