// State files that are not what they should be: a FIFO in a file's place, and property lists and
// JSON nested 200,000 deep. Every reader must come back at once, and the history and the settings
// set such a file aside as they would a corrupt one.

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "kit/files/FreedesktopTrash.hpp"
#include "kit/files/History.hpp"
#include "kit/files/SandboxTrash.hpp"
#include "shared/widget/WidgetSnapshot.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/plist/Plist.hpp"
#include "support/posix/AtomicFile.hpp"
#include "support/posix/Files.hpp"
#include "support/plist/PlistNesting.hpp"
#include "support/settings/PlistFileStore.hpp"
#include "support/text/Nesting.hpp"

namespace {

using testing_support::exists;

constexpr int hostileDepth = 200'000;

enum class Hostile { fifo, deepJson, deepXml, deepBinary };

std::string repeated(const std::string& s, int n) {
    std::string out;
    out.reserve(s.size() * static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

// A binary property list of n arrays, each holding the next; refs and offsets 4 bytes wide. With
// shared set, each array holds the next one twice (a tree that unfolds to 2^n nodes); with circle
// set, the last holds the first.
std::string binaryChain(int n, bool shared = false, bool circle = false) {
    std::string out = "bplist00";
    auto be32 = [](std::string& s, std::uint32_t v) {
        for (int k = 3; k >= 0; --k) s.push_back(static_cast<char>((v >> (8 * k)) & 0xFF));
    };
    std::vector<std::uint32_t> offsets;
    for (int i = 0; i < n; ++i) {
        offsets.push_back(static_cast<std::uint32_t>(out.size()));
        if (i + 1 == n) {
            out.push_back(static_cast<char>(circle ? 0xA1 : 0xA0));
            if (circle) be32(out, 0);
            continue;
        }
        out.push_back(static_cast<char>(shared ? 0xA2 : 0xA1));
        be32(out, static_cast<std::uint32_t>(i + 1));
        if (shared) be32(out, static_cast<std::uint32_t>(i + 1));
    }
    const auto table = static_cast<std::uint32_t>(out.size());
    for (auto o : offsets) be32(out, o);
    out += std::string(6, '\0') + '\x04' + '\x04';
    for (std::uint64_t v : {std::uint64_t(n), std::uint64_t(0), std::uint64_t(table)}) {
        for (int k = 7; k >= 0; --k) out.push_back(static_cast<char>((v >> (8 * k)) & 0xFF));
    }
    return out;
}

std::string deepXml(int n) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + repeated("<array>", n) +
           repeated("</array>", n) + "</plist>\n";
}

// Puts the hostile file at path, making its folders.
void plant(const std::string& path, Hostile kind) {
    testing_support::makeFolders(quorv::files::parentOf(path));
    switch (kind) {
        case Hostile::fifo:
            ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0) << path;
            return;
        case Hostile::deepJson:
            return testing_support::writeBytes(path, repeated("[", hostileDepth) + repeated("]", hostileDepth));
        case Hostile::deepXml:
            return testing_support::writeBytes(path, deepXml(hostileDepth));
        case Hostile::deepBinary:
            return testing_support::writeBytes(path, binaryChain(hostileDepth));
    }
}

// Runs read in a child process. Success when it returns true there; a hang (a FIFO waited on)
// is cut off after a minute, a crash (a stack overflow) shows as a signal. The minute is only a
// stop for a regression: a passing read takes milliseconds.
::testing::AssertionResult promptly(const std::function<bool()>& read) {
    const pid_t pid = ::fork();
    if (pid < 0) return ::testing::AssertionFailure() << "no child process";
    if (pid == 0) ::_exit(read() ? 0 : 1);
    for (int tenths = 0; tenths < 600; ++tenths) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return ::testing::AssertionSuccess();
            if (WIFSIGNALED(status)) return ::testing::AssertionFailure() << "crashed with signal " << WTERMSIG(status);
            return ::testing::AssertionFailure() << "read something from a hostile file";
        }
        ::usleep(100'000);
    }
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    return ::testing::AssertionFailure() << "still blocked after a minute";
}

struct Place {
    const char* name;
    std::vector<Hostile> kinds;
    std::function<void(Hostile)> check;  // plants, reads in a child, looks at what is left
};

void historyFile(Hostile kind) {
    testing_support::SandboxHost s;
    quorv::HostScope scope(s.host);
    const std::string file = brimstell::History::defaultFile();
    plant(file, kind);
    EXPECT_TRUE(promptly([&] { return brimstell::History(file).entries().empty(); }));
    EXPECT_FALSE(exists(file)) << "set aside";
    EXPECT_TRUE(exists(file + ".1790000000")) << "set aside under the time";
}

void settingsFile(Hostile kind) {
    testing_support::SandboxHost s;
    quorv::HostScope scope(s.host);
    const std::string file = s.host->settingsFile();
    plant(file, kind);
    EXPECT_TRUE(promptly([&] { return !quorv::PlistFileStore(file).object("agent.lastRun"); }));
    EXPECT_FALSE(exists(file)) << "set aside";
    EXPECT_TRUE(exists(file + ".corrupt"));
}

void widgetFile(Hostile kind) {
    testing_support::TempDir dir;
    plant(dir / brimstell::WidgetSnapshot::fileName, kind);
    EXPECT_TRUE(promptly([&] { return !brimstell::WidgetSnapshot::read(dir.path()); }));
}

void sandboxLedger(Hostile kind) {
    testing_support::SandboxHost s;
    s.host->trash = std::make_shared<brimstell::SandboxTrash>();
    quorv::HostScope scope(s.host);
    const std::string trashed = s.mac.writeFile("~/.Trash/kept", "x");
    plant(brimstell::SandboxTrash::folder() + "/.brimstell-trash.json", kind);
    EXPECT_TRUE(promptly([&] {
        const auto items = quorv::host().trash->list();
        return items.size() == 1 && items[0].location == trashed && !items[0].originalPath;
    }));
}

// A .trashinfo in the home Trash and in a mounted volume's own Trash.
void trashInfo(Hostile kind) {
    testing_support::LinuxTrashHost env;
    quorv::HostScope scope(env.host);
    env.mounts({"/vol"});
    const std::string volumeTrash = env.base + "/vol/.Trash-" + std::to_string(::geteuid());
    for (const auto& trash : {env.trash, volumeTrash}) {
        testing_support::makeFolders(trash + "/files");
        testing_support::writeBytes(trash + "/files/item", "x");
        plant(trash + "/info/item.trashinfo", kind);
    }
    EXPECT_TRUE(promptly([] { return quorv::host().trash->list().size() == 2; }));
}

TEST(HostileStateFiles, EveryReaderReturnsAtOnceAndSetsAsideWhereDue) {
    const Place places[] = {
        {"history.json", {Hostile::fifo, Hostile::deepJson}, historyFile},
        {"settings", {Hostile::fifo, Hostile::deepXml, Hostile::deepBinary}, settingsFile},
        {"widget.json", {Hostile::fifo, Hostile::deepJson}, widgetFile},
        {"sandbox Trash ledger", {Hostile::fifo, Hostile::deepJson}, sandboxLedger},
        {".trashinfo", {Hostile::fifo}, trashInfo},
    };
    for (const auto& place : places) {
        for (auto kind : place.kinds) {
            SCOPED_TRACE(std::string(place.name) + " as hostile kind " + std::to_string(static_cast<int>(kind)));
            place.check(kind);
        }
    }
}

// What files::read says of each kind of thing in a file's place: the history tells "nothing there"
// (start empty) from "unreadable" (set aside) by errno.
TEST(HostileStateFiles, ReadRefusesWhatIsNotARegularFileAndSaysWhy) {
    testing_support::TempDir dir;
    testing_support::writeBytes(dir / "ten", "0123456789");
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::symlink((dir / "ten").c_str(), (dir / "link").c_str()), 0);
    const struct {
        std::string name;
        std::size_t cap;
        int error;  // 0: read whole
    } rows[] = {
        {"ten", 10, 0}, {"ten", 9, EFBIG}, {"missing", 10, ENOENT}, {"fifo", 10, EINVAL}, {"", 10, EINVAL}, {"link", 10, ELOOP},
    };
    for (const auto& row : rows) {
        errno = 0;
        const auto text = quorv::files::read(dir / row.name, row.cap);
        EXPECT_EQ(text.has_value(), row.error == 0) << row.name << " capped at " << row.cap;
        EXPECT_EQ(row.error == 0 ? 0 : errno, row.error) << row.name << " capped at " << row.cap;
        EXPECT_EQ(text.value_or("0123456789"), "0123456789");
        // Read in pieces (of 3 bytes, then 4): the same answers, and the pieces make the file.
        std::string pieces;
        errno = 0;
        const bool whole = quorv::files::readInPieces(dir / row.name, row.cap, 3, [&](std::string_view piece, std::size_t) {
            pieces += std::string(piece) + "|";
            return std::size_t{4};
        });
        EXPECT_EQ(whole, row.error == 0) << row.name << " capped at " << row.cap;
        EXPECT_EQ(row.error == 0 ? 0 : errno, row.error) << row.name << " in pieces, capped at " << row.cap;
        EXPECT_EQ(whole ? pieces : "012|3456|789|", "012|3456|789|");
    }
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(folder)) names.push_back(e.path().filename().string());
    return names;
}

// A file written in pieces appears whole on commit, and not at all (nor its temporary) otherwise.
TEST(HostileStateFiles, AnAtomicFileIsWholeOrAbsent) {
    testing_support::TempDir dir;
    const std::string path = dir / "sub/state.json";
    {
        auto file = quorv::files::AtomicFile::create(path, 0600);
        ASSERT_TRUE(file);
        EXPECT_TRUE(file->write("half"));
    }
    EXPECT_EQ(namesIn(dir / "sub"), std::vector<std::string>{}) << "nothing left uncommitted";
    testing_support::writeBytes(path, "old");
    auto file = quorv::files::AtomicFile::create(path, 0600);
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->write("new ") && file->write("text"));
    EXPECT_EQ(quorv::files::read(path).value_or(""), "old") << "unchanged until the commit";
    EXPECT_TRUE(file->commit());
    EXPECT_EQ(quorv::files::read(path).value_or(""), "new text");
    EXPECT_EQ(namesIn(dir / "sub"), std::vector<std::string>{"state.json"});
    // A folder that can't be made: a file stands where it would go.
    EXPECT_FALSE(quorv::files::AtomicFile::create(path + "/below", 0600));
}

// The depth limit is 512 levels: 512 nested arrays still read, 513 don't, in every format.
TEST(HostileStateFiles, NestingLimitIsExactlyFiveHundredTwelve) {
    using quorv::Value;
    auto nested = [](int n) {
        Value v{Value::Array{}};
        for (int i = 1; i < n; ++i) v = Value{Value::Array{v}};
        return v;
    };
    for (int n : {512, 513}) {
        SCOPED_TRACE(n);
        const bool within = n <= 512;
        EXPECT_EQ(quorv::plist::parse(quorv::plist::toXml(nested(n))).has_value(), within);
        EXPECT_EQ(quorv::plist::parse(quorv::plist::toBinary(nested(n))).has_value(), within);
        EXPECT_EQ(quorv::plist::parse(binaryChain(n)).has_value(), within);
        EXPECT_EQ(quorv::nesting::jsonWithin(repeated("{\"a\":[", n / 2) + (n % 2 ? "[" : "") + "]"), within);
    }
}

// Texts that look deep but aren't, and hostile shapes that aren't deep at all.
TEST(HostileStateFiles, NestingCountsOnlyRealLevels) {
    const std::string deepInString = "[\"" + repeated("[", 2000) + "\\\"" + repeated("{", 2000) + "\"]";
    EXPECT_TRUE(quorv::nesting::jsonWithin(deepInString)) << "brackets inside a string, past an escaped quote";
    EXPECT_TRUE(quorv::nesting::xmlWithin("<plist>" + repeated("<true/><!-- <array> --><![CDATA[<dict>]]>", 2000) +
                                          "</plist>"));
    EXPECT_FALSE(quorv::nesting::xmlWithin(repeated("<array a='>'>", 600))) << "a '>' in a quoted value ends no tag";
    EXPECT_FALSE(quorv::nesting::xmlWithin("<!DOCTYPE x [" + repeated("<a>", 600) + "]>"))
        << "nothing hides in a document type";
    EXPECT_FALSE(quorv::nesting::xmlWithin(repeated("<array></dict>", 3))) << "an end tag closes its own element";

    EXPECT_FALSE(quorv::plist::binaryNestingWithin(binaryChain(3, false, true))) << "a circle";
    EXPECT_FALSE(quorv::plist::binaryNestingWithin(binaryChain(40, true))) << "2^40 nodes once unfolded";
    EXPECT_TRUE(quorv::plist::binaryNestingWithin(binaryChain(8, true))) << "a small shared tree is fine";
    EXPECT_FALSE(quorv::plist::binaryNestingWithin(binaryChain(3).substr(0, 40))) << "a torn file";
}

// Real property lists, XML and binary, are never taken for hostile ones.
TEST(HostileStateFiles, RealPropertyListsPassTheNestingCheck) {
    const std::string real = std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real";
    if (!std::filesystem::is_directory(real)) GTEST_SKIP() << "the real fixtures are not beside the checkout: " << real;
    int seen = 0;
    for (const auto& e : std::filesystem::recursive_directory_iterator(real)) {
        if (e.path().extension() != ".plist") continue;
        const auto bytes = quorv::files::read(e.path().string());
        ASSERT_TRUE(bytes) << e.path();
        EXPECT_TRUE(quorv::plist::parse(*bytes)) << e.path();
        ++seen;
    }
    EXPECT_GT(seen, 0);
}

}  // namespace
