#include "kit/files/InProcessHelperTransport.hpp"

namespace brimstell {

InProcessHelperTransport::InProcessHelperTransport(std::string root, std::string me)
    : root_(std::move(root)), me_(std::move(me)) {}

std::optional<std::string> InProcessHelperTransport::call(const std::string& op, const std::string& arg,
                                                          const std::vector<std::string>& list,
                                                          std::optional<double> /*timeout*/) {
    std::lock_guard lock(mutex_);
    if (!dispatch_) dispatch_ = HelperDispatch::open(root_);
    if (!dispatch_) return std::nullopt;
    if (op == "version") return HelperDispatch::version();
    return dispatch_->run(op, arg, list, me_);
}

}  // namespace brimstell
