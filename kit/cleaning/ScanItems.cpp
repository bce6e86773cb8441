#include "kit/cleaning/ScanItems.hpp"

#include <iterator>
#include <utility>

#include "support/text/Uuid.hpp"

namespace brimstell::scanitems {

std::string trimmed(std::string home) {
    while (home.size() > 1 && home.back() == '/') home.pop_back();
    return home;
}

std::string joined(const std::string& folder, std::string_view name) {
    std::string path = folder == "/" ? std::string() : folder;
    path += '/';
    path += name;
    return path;
}

FileItem makeItem(std::string location, std::string label, bool selected) {
    FileItem item;
    item.location = std::move(location);
    item.id = quorv::newUuid();
    item.size = 0;
    item.selected = selected;
    item.label = std::move(label);
    return item;
}

void Found::add(std::string_view category, FileItem item) { items_[std::string(category)].push_back(std::move(item)); }

void Found::add(std::vector<JunkCategory>&& categories) {
    for (auto& category : categories) {
        auto& items = items_[category.name];
        std::move(category.items.begin(), category.items.end(), std::back_inserter(items));
    }
}

std::vector<JunkCategory> Found::categories(std::span<const CategoryRule> rules) {
    std::vector<JunkCategory> out;
    auto take = [&](const CategoryRule& rule) {
        const auto it = items_.find(rule.name);
        if (it == items_.end() || it->second.empty()) return;
        JunkCategory category = JunkCatalogue::makeCategory(rule);
        category.items = std::move(it->second);
        out.push_back(std::move(category));
    };
    for (const auto& rule : rules) take(rule);
    for (const auto& rule : JunkCatalogue::developerCategories()) take(rule);
    JunkCatalogue::defaultTicking(out);
    return out;
}

}  // namespace brimstell::scanitems
