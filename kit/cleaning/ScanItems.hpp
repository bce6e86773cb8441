#pragma once
// What the junk scanners of both platforms share: building items and gathering them by category
// name, to be given back as categories in the list's order.

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kit/cleaning/JunkCatalogue.hpp"
#include "kit/cleaning/JunkCategory.hpp"

namespace brimstell::scanitems {

// The location without trailing slashes ("/" stays "/").
std::string trimmed(std::string home);
// folder + "/" + name, without doubling the slash of "/".
std::string joined(const std::string& folder, std::string_view name);
// An item with a fresh id and size 0.
FileItem makeItem(std::string location, std::string label, bool selected = true);

// Items found so far by category name.
class Found {
public:
    void add(std::string_view category, FileItem item);
    void add(std::vector<JunkCategory>&& categories);
    // The categories with items: those of rules in their order, then the developer categories,
    // ticked by JunkCatalogue::defaultTicking. Items of a name in neither are dropped.
    std::vector<JunkCategory> categories(std::span<const CategoryRule> rules);

private:
    std::map<std::string, std::vector<FileItem>, std::less<>> items_;
};

}  // namespace brimstell::scanitems
