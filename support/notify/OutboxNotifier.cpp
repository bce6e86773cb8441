#include "support/notify/OutboxNotifier.hpp"

#include <exception>
#include <utility>

#include <nlohmann/json.hpp>

#include "support/posix/Files.hpp"

namespace quorv {

OutboxNotifier::OutboxNotifier(std::string path) : path_(std::move(path)) {}

std::string OutboxNotifier::line(const std::string& id, const std::string& title, const std::string& body) {
    nlohmann::ordered_json record;
    record["id"] = id;
    record["title"] = title;
    record["body"] = body;
    std::string text = record.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    text += '\n';
    return text;
}

bool OutboxNotifier::deliver(const std::string& id, const std::string& title, const std::string& body) {
    if (path_.empty()) return false;
    try {
        return files::appendRecord(path_, line(id, title, body));
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace quorv
