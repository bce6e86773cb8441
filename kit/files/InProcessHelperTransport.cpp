#include "kit/files/InProcessHelperTransport.hpp"

#include "support/host/Host.hpp"

namespace brimstell {

InProcessHelperTransport::InProcessHelperTransport(std::string root, std::string me)
    : root_(std::move(root)), me_(std::move(me)) {}

std::optional<std::string> InProcessHelperTransport::call(const std::string& op, const std::string& arg,
                                                          const std::vector<std::string>& list,
                                                          std::optional<double> /*timeout*/) {
    std::lock_guard lock(mutex_);
    // The rules of the platform this process stands for: a sandbox Mac's, or Linux's.
    const auto rules = quorv::host().isMac() ? HelperRules::mac : HelperRules::linux;
    if (!dispatch_) dispatch_ = HelperDispatch::open(root_, rules);
    if (!dispatch_) return std::nullopt;
    if (op == "version") return HelperDispatch::version();
    return dispatch_->run(op, arg, list, me_);
}

}  // namespace brimstell
