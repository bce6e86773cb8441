#pragma once
// Process-wide notifications of the file engines, so that pages and models refresh: a name is
// posted, and everything observing that name is called on the posting thread.

#include <cstdint>
#include <functional>
#include <string>

namespace brimstell {

class FileEvents {
public:
    // Posted after every call of the mover to the Trash.
    static constexpr const char* sweepDidClean = "sweepDidClean";
    // Posted after the cleaning history was written.
    static constexpr const char* historyDidChange = "com.quorv.brimstell.history";

    // Keeps an observer registered for as long as it lives.
    class Observation {
    public:
        Observation() = default;
        ~Observation();
        Observation(Observation&& o) noexcept;
        Observation& operator=(Observation&& o) noexcept;
        Observation(const Observation&) = delete;
        Observation& operator=(const Observation&) = delete;
        void cancel();

    private:
        friend class FileEvents;
        explicit Observation(std::uint64_t token) : token_(token) {}
        std::uint64_t token_ = 0;
    };

    // fn runs on the thread that posts, outside any lock of the registry; it may post or observe
    // in turn. An observation cancelled while a post runs may still see that one post.
    [[nodiscard]] static Observation observe(const std::string& name, std::function<void()> fn);
    static void post(const std::string& name);
};

}  // namespace brimstell
