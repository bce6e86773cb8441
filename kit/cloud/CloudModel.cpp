#include "kit/cloud/CloudModel.hpp"

#include <algorithm>
#include <utility>

#include "kit/cleaning/CleanLock.hpp"
#include "kit/cloud/CloudDownloads.hpp"
#include "support/background/Background.hpp"
#include "support/text/SizeText.hpp"

namespace brimstell {

std::string CloudModel::resultLine(const CloudReleaseResult& result) {
    std::string line = "Released " + quorv::formatSize(result.releasedBytes);
    for (const auto& [count, text] : {std::pair{result.notUploaded, notUploadedText}, std::pair{result.keptOffline, keptOfflineText},
                                      std::pair{result.conflicts, conflictText}, std::pair{result.failed, failedText}}) {
        if (count > 0) line += "; " + std::to_string(count) + text;
    }
    return line;
}

std::string CloudModel::confirmText(std::int64_t bytes) {
    return "Release " + quorv::formatSize(bytes) + " of downloaded files? They stay in the cloud and download again when opened.";
}

void CloudModel::recount() {
    total = 0;
    selectedSize = 0;
    for (const auto& p : providers) {
        total += p.bytes;
        if (p.selected) selectedSize += p.bytes;
    }
}

std::string CloudModel::status() const {
    if (!CloudDownloads::available()) return unavailableText;
    if (scanning) return measuringText;
    if (removing) return removingText;
    if (message) return *message;
    return scanned && providers.empty() ? noneText : "";
}

void CloudModel::scan() {
    if (scanning || removing) return;
    scanning = true;
    message.reset();
    providers = quorv::Background::await([] { return CloudDownloads::scan(); });
    recount();
    scanning = false;
    scanned = true;
}

CloudReleaseResult CloudModel::removeSelected() {
    CloudReleaseResult result;
    if (scanning || removing) return result;
    const auto lock = CleanLock::take();
    if (!lock) {
        result.busy = true;
        message = CleanLock::busyText;
        return result;
    }
    std::vector<std::string> chosen;
    for (const auto& p : providers) {
        if (p.selected) chosen.push_back(p.location);
    }
    removing = true;
    result = quorv::Background::await([&chosen] { return CloudDownloads::remove(chosen); });
    removing = false;
    // What a release kept or couldn't take back shows in the next measure: ticks stay as they were.
    std::vector<std::string> ticked = std::move(chosen);
    scan();
    for (auto& p : providers) p.selected = std::find(ticked.begin(), ticked.end(), p.location) != ticked.end();
    recount();
    message = resultLine(result);
    return result;
}

}  // namespace brimstell
