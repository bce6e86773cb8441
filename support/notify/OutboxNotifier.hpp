#pragma once
// A notification centre that writes each notification to a file, one JSON line each:
// {"id":…,"title":…,"body":…}. Sandbox runs and tests read what would have been shown from it.

#include <string>

#include "support/notify/Notifier.hpp"

namespace quorv {

class OutboxNotifier : public Notifier {
public:
    explicit OutboxNotifier(std::string path);

    // Appends the line with one write, so lines from several processes never interleave.
    // False when the file can't be written.
    bool deliver(const std::string& id, const std::string& title, const std::string& body) override;

    const std::string& path() const { return path_; }

    // The line written for one notification, with its final line feed. Bytes that are not valid
    // UTF-8 become U+FFFD.
    static std::string line(const std::string& id, const std::string& title, const std::string& body);

private:
    std::string path_;
};

}  // namespace quorv
