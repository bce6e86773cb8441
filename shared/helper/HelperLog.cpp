// The moved log: what the helper moved into a Trash, so that it puts back only what it moved.
// Always rewritten whole through a temporary file and a rename.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "shared/helper/HelperFiles.hpp"
#include "shared/helper/HelperPaths.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {

using quorv::UniqueFd;

namespace {

// Far above 20,000 lines of two paths each; a larger file is not ours to trust.
constexpr std::size_t maxLogBytes = std::size_t{256} << 20;

std::optional<std::string> readAll(int fd) {
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            return std::nullopt;
        }
        if (n == 0) return text;
        if (text.size() + static_cast<std::size_t>(n) > maxLogBytes) return std::nullopt;
        text.append(buffer, static_cast<std::size_t>(n));
    }
}

bool isLogLine(std::string_view line) {
    return !line.empty() && line.find_first_of(std::string_view("\n\r\0", 3)) == std::string_view::npos;
}

}  // namespace

std::optional<std::vector<std::string>> HelperFiles::readLog(std::string_view log) const {
    UniqueFd fd = openRecord(log, O_RDONLY);
    if (!fd) return std::nullopt;
    auto text = readAll(fd.get());
    if (!text) return std::nullopt;
    return helperpaths::lines(*text);
}

bool HelperFiles::rewrite(std::string_view log, const std::vector<std::string>& lines) const {
    auto parts = helperpaths::split(log);
    if (!parts) return false;
    UniqueFd folder = openFolder(parts->folder);
    if (!folder) return false;
    const std::string temp = parts->name + ".tmp";
    (void)::unlinkat(folder.get(), temp.c_str(), 0);  // left by a helper that died mid-write

    std::string text;
    for (const auto& line : lines) {
        text += line;
        text += '\n';
    }
    UniqueFd fd(::openat(folder.get(), temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd) return false;
    const bool written = ::fchmod(fd.get(), 0600) == 0 && quorv::files::writeAll(fd.get(), text) && ::fsync(fd.get()) == 0 &&
                         ::close(fd.release()) == 0;
    if (!written || ::renameat(folder.get(), temp.c_str(), folder.get(), parts->name.c_str()) != 0) {
        (void)::unlinkat(folder.get(), temp.c_str(), 0);
        return false;
    }
    (void)::fsync(folder.get());
    return true;
}

bool HelperFiles::note(const std::string& line, std::string_view log) const {
    if (!isLogLine(line)) return false;
    auto parts = helperpaths::split(log);
    if (!parts) return false;
    // The log's folder is ours to make on first use.
    (void)logFolder(parts->folder);
    UniqueFd fd = openRecord(log, O_RDWR | O_CREAT);
    if (!fd) return false;
    auto text = readAll(fd.get());
    if (!text) return false;
    fd.reset();
    auto lines = helperpaths::lines(*text);
    if (lines.size() > maxLogLines - 1) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(maxLogLines - 1));
    lines.push_back(line);
    return rewrite(log, lines);
}

bool HelperFiles::noted(const std::string& line, std::string_view log) const {
    if (!isLogLine(line)) return false;
    auto lines = readLog(log);
    return lines && std::find(lines->begin(), lines->end(), line) != lines->end();
}

bool HelperFiles::forget(const std::string& line, std::string_view log) const {
    auto lines = readLog(log);
    if (!lines) return false;
    const auto before = lines->size();
    std::erase(*lines, line);
    return lines->size() == before || rewrite(log, *lines);
}

}  // namespace brimstell
