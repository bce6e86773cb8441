#include "kit/insight/SlowdownModel.hpp"

#include <algorithm>

#include "support/background/Background.hpp"
#include "support/host/Host.hpp"

namespace brimstell {

void SlowdownModel::check() {
    checking = true;
    auto taken = quorv::Background::await([] { return Slowdown::read(); });
    causes = Slowdown::causes(taken);
    reading = std::move(taken);
    checking = false;
    checked = true;
}

bool SlowdownModel::quit(const Slowdown::Cause& cause) {
    const auto* q = std::get_if<Slowdown::Quit>(&cause.fix);
    if (!q || !Slowdown::quit(cause.fix)) {
        message = quitFailedText;
        return false;
    }
    message = quitText(q->name);
    return true;
}

const Slowdown::Cause* SlowdownModel::causeQuitting(std::uint32_t pid) const {
    for (const auto& c : causes)
        if (const auto* q = std::get_if<Slowdown::Quit>(&c.fix); q && std::count(q->pids.begin(), q->pids.end(), pid))
            return &c;
    return nullptr;
}

std::string SlowdownModel::checkingText() {
    return quorv::host().isMac() ? "Checking your Mac…" : "Checking your computer…";
}

std::string SlowdownModel::nothingTitle() {
    return quorv::host().isMac() ? "Nothing Is Slowing Your Mac" : "Nothing Is Slowing Your Computer";
}

std::string SlowdownModel::nothingDetail() { return "The processor, memory, disk and temperature all look normal."; }

std::string SlowdownModel::quitNote() {
    return quorv::host().isMac() ? Slowdown::quitNote
                                 : "It's asked to quit politely, so it can save your work before it closes.";
}

std::string SlowdownModel::quitText(const std::string& name) { return name + " was asked to quit"; }

}  // namespace brimstell
