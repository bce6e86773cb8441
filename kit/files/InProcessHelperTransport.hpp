#pragma once
// The root helper's dispatcher called in-process: what a sandbox Mac uses in place of the daemon,
// and tests that want the helper without a socket. It runs with this process's own rights, on the
// sandbox's root, for the user whose home is given (as the Mac sees it). Requests are served one
// at a time, as the daemon serves them.

#include <mutex>
#include <optional>
#include <string>

#include "shared/helper/HelperDispatch.hpp"
#include "support/host/HelperTransport.hpp"

namespace brimstell {

class InProcessHelperTransport final : public quorv::HelperTransport {
public:
    // root: the folder that stands for "/"; me: the caller's home as a Mac path ("/Users/ann").
    InProcessHelperTransport(std::string root, std::string me);

    // nullopt only when the root can't be opened; the timeout is not needed (nothing can hang
    // but the script's tools, which have their own time limit).
    std::optional<std::string> call(const std::string& op, const std::string& arg,
                                    const std::vector<std::string>& list, std::optional<double> timeout) override;

private:
    std::mutex mutex_;
    std::string root_;
    std::string me_;
    std::optional<HelperDispatch> dispatch_;  // opened on first use
};

}  // namespace brimstell
