#include "support/plist/PlistNesting.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace quorv::plist {
namespace {

constexpr std::size_t trailerSize = 32;
constexpr std::size_t headerSize = 8;  // "bplist00"

std::uint64_t bigEndian(std::string_view bytes, std::size_t at, std::size_t width) {
    std::uint64_t v = 0;
    for (std::size_t k = 0; k < width; ++k) v = (v << 8) | static_cast<unsigned char>(bytes[at + k]);
    return v;
}

// The layout the trailer describes, checked to lie inside the bytes.
struct Layout {
    std::size_t offsetSize = 0, refSize = 0;
    std::uint64_t count = 0, top = 0, table = 0;
    std::size_t objectsEnd = 0;  // where the offset table begins: objects lie before it
};

std::optional<Layout> layoutOf(std::string_view b) {
    if (b.size() < headerSize + trailerSize) return std::nullopt;
    const std::size_t t = b.size() - trailerSize;
    Layout l;
    l.offsetSize = static_cast<unsigned char>(b[t + 6]);
    l.refSize = static_cast<unsigned char>(b[t + 7]);
    l.count = bigEndian(b, t + 8, 8);
    l.top = bigEndian(b, t + 16, 8);
    l.table = bigEndian(b, t + 24, 8);
    if (l.offsetSize < 1 || l.offsetSize > 8 || l.refSize < 1 || l.refSize > 8) return std::nullopt;
    if (l.count == 0 || l.count > b.size() || l.top >= l.count) return std::nullopt;
    if (l.table < headerSize || l.table > t || (t - l.table) / l.offsetSize < l.count) return std::nullopt;
    l.objectsEnd = static_cast<std::size_t>(l.table);
    return l;
}

// An object's references: where they start and how many there are (none for a scalar).
struct Children {
    bool container = false;
    std::size_t first = 0;
    std::uint64_t count = 0;
};

// nullopt for a malformed object.
std::optional<Children> childrenOf(std::string_view b, const Layout& l, std::uint64_t object) {
    const std::uint64_t at = bigEndian(b, static_cast<std::size_t>(l.table + object * l.offsetSize), l.offsetSize);
    if (at < headerSize || at >= l.objectsEnd) return std::nullopt;
    std::size_t p = static_cast<std::size_t>(at);
    const unsigned type = static_cast<unsigned char>(b[p]) >> 4;
    // Arrays, ordered sets, sets and dictionaries hold references; nothing else does.
    if (type < 0xA || type > 0xD) return Children{};
    std::uint64_t n = static_cast<unsigned char>(b[p]) & 0xF;
    ++p;
    if (n == 0xF) {
        if (p >= l.objectsEnd) return std::nullopt;
        const unsigned marker = static_cast<unsigned char>(b[p]);
        const std::size_t width = std::size_t{1} << (marker & 0xF);
        if ((marker >> 4) != 0x1 || width > 8 || l.objectsEnd - p - 1 < width) return std::nullopt;
        n = bigEndian(b, p + 1, width);
        p += 1 + width;
    }
    if (type == 0xD) {
        if (n > l.objectsEnd) return std::nullopt;
        n *= 2;  // keys, then values
    }
    if (n > (l.objectsEnd - p) / l.refSize) return std::nullopt;
    return Children{true, p, n};
}

struct Frame {
    std::uint64_t object;
    Children children;
    std::uint64_t next = 0;
    int height = 0;           // the deepest child's height so far
    std::uint64_t nodes = 1;  // this object and its children, unfolded, so far
};

}  // namespace

// A depth-first walk with an explicit stack over containers only; each object is walked once and
// remembers its height (containers nested in it, itself included) and its unfolded node count.
bool binaryNestingWithin(std::string_view b, int limit) {
    const auto layout = layoutOf(b);
    if (!layout) return false;
    const Layout& l = *layout;
    enum : std::uint8_t { unseen, open, done };
    std::vector<std::uint8_t> state(static_cast<std::size_t>(l.count), unseen);
    std::vector<int> height(state.size(), 0);
    std::vector<std::uint64_t> nodes(state.size(), 1);
    const std::uint64_t maxNodes = 16 * static_cast<std::uint64_t>(b.size()) + 4096;
    std::vector<Frame> stack;

    // Starts an object: a scalar is done at once, a container is pushed.
    auto enter = [&](std::uint64_t object) {
        const auto children = childrenOf(b, l, object);
        if (!children) return false;
        if (!children->container) {
            state[object] = done;
            return true;
        }
        if (stack.size() >= static_cast<std::size_t>(limit)) return false;
        state[object] = open;
        stack.push_back({object, *children});
        return true;
    };
    // Adds a finished child to the container on top of the stack.
    auto fold = [&](std::uint64_t child) {
        Frame& parent = stack.back();
        parent.height = std::max(parent.height, height[child]);
        parent.nodes += nodes[child];
        return parent.nodes <= maxNodes;
    };
    if (!enter(l.top)) return false;
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next < f.children.count) {
            const std::uint64_t ref = bigEndian(b, f.children.first + f.next * l.refSize, l.refSize);
            ++f.next;
            if (ref >= l.count || state[ref] == open) return false;  // out of range, or a circle
            if (state[ref] == unseen && !enter(ref)) return false;
            if (state[ref] == done && !fold(ref)) return false;
            continue;
        }
        const std::uint64_t object = f.object;
        state[object] = done;
        height[object] = f.height + 1;
        nodes[object] = f.nodes;
        stack.pop_back();
        if (!stack.empty() && !fold(object)) return false;
    }
    return true;
}

bool nestingWithin(std::string_view bytes, int limit) {
    if (bytes.starts_with("bplist")) return binaryNestingWithin(bytes, limit);
    // Elements, not objects: the <plist> element around the top object, and a value's own element
    // (<string>, <key>) inside the innermost container, come on top of the containers.
    return nesting::xmlWithin(bytes, limit + 2);
}

}  // namespace quorv::plist
