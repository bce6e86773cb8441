// Downloaded cloud files: the providers' folders and their names, sizes as allocated bytes, the
// release with what it keeps, "cloud.keptOffline", and the texts.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "kit/cloud/CloudDownloads.hpp"
#include "kit/cloud/CloudModel.hpp"
#include "kit/sandbox/SandboxCloud.hpp"
#include "support/TestSupport.hpp"
#include "support/settings/SettingsStore.hpp"

namespace {

using brimstell::CloudDownloads;
using brimstell::CloudError;
using brimstell::CloudModel;
using brimstell::CloudReleaseResult;

std::int64_t allocatedOf(const std::string& location) {
    struct stat st {};
    return ::lstat(location.c_str(), &st) == 0 ? static_cast<std::int64_t>(st.st_blocks) * 512 : -1;
}

std::int64_t lengthOf(const std::string& location) {
    struct stat st {};
    return ::lstat(location.c_str(), &st) == 0 ? static_cast<std::int64_t>(st.st_size) : -1;
}

struct Cloud : testing_support::SandboxHost {
    quorv::HostScope scope{host};
    std::string dropbox = mac.path("~/Library/CloudStorage/Dropbox");
    std::string iCloud = mac.path("~/Library/Mobile Documents/com~apple~CloudDocs");
};

TEST(CloudDownloads, ProviderNamesFromFolderNames) {
    const struct {
        const char* folder;
        const char* name;
    } cases[] = {
        {"GoogleDrive-ann@example.com", "Google Drive"}, {"OneDrive-Contoso", "OneDrive"}, {"OneDrive-Personal", "OneDrive"},
        {"OneDrive", "OneDrive"}, {"Dropbox", "Dropbox"}, {"Dropbox-Work", "Dropbox"}, {"Box", "Box"},
        {"Box-Acme", "Box"}, {"pCloud", "pCloud"}, {"dropbox", "dropbox"}, {"Google Drive", "Google Drive"},
    };
    for (const auto& c : cases) EXPECT_EQ(CloudDownloads::providerName(c.folder), c.name) << c.folder;
}

TEST(CloudDownloads, RootsAreTheProviderFoldersAndICloudDrive) {
    Cloud s;
    s.mac.makeFolder("~/Library/CloudStorage/Dropbox");
    s.mac.makeFolder("~/Library/CloudStorage/OneDrive-Contoso");
    s.mac.makeFolder("~/Library/CloudStorage/.Trash");
    s.mac.writeFile("~/Library/CloudStorage/GoogleDrive-file", "not a folder\n");
    s.mac.makeFolder("~/Elsewhere");
    std::filesystem::create_directory_symlink(s.mac.path("~/Elsewhere"), s.mac.path("~/Library/CloudStorage/Box"));
    auto roots = CloudDownloads::roots();
    ASSERT_EQ(roots.size(), 2u);
    EXPECT_EQ(roots[0].name, "Dropbox");
    EXPECT_EQ(roots[1].name, "OneDrive");
    EXPECT_EQ(roots[1].location, s.mac.path("~/Library/CloudStorage/OneDrive-Contoso"));

    s.mac.makeFolder("~/Library/Mobile Documents/com~apple~CloudDocs");
    roots = CloudDownloads::roots();
    ASSERT_EQ(roots.size(), 3u);
    EXPECT_EQ(roots[2].name, "iCloud Drive");
    EXPECT_EQ(roots[2].location, s.iCloud);
}

TEST(CloudDownloads, SizesCountAllocatedBytesOfRegularFilesOnly) {
    Cloud s;
    const auto real = s.mac.writeFileOfSize("~/Library/CloudStorage/Dropbox/a/b/real.bin", 1'000'000);
    brimstell::addCloudOnlyFile(s.mac, "~/Library/CloudStorage/Dropbox/a/cloud-only.mov", 50'000'000);
    s.mac.writeFileOfSize("~/Library/CloudStorage/Dropbox/.DS_Store", 40'000);
    s.mac.writeFileOfSize("~/Library/CloudStorage/Dropbox/.dropbox.cache/part", 70'000);
    ASSERT_EQ(::link(real.c_str(), (s.dropbox + "/hard-link.bin").c_str()), 0);
    // Links to a big file and to a folder outside: neither is followed.
    const auto outside = s.mac.writeFileOfSize("~/Big/outside.bin", 3'000'000);
    std::filesystem::create_symlink(outside, s.dropbox + "/to-file");
    std::filesystem::create_directory_symlink(s.mac.path("~/Big"), s.dropbox + "/to-folder");

    ASSERT_GE(allocatedOf(real), 1'000'000);
    EXPECT_EQ(CloudDownloads::downloadedSize(s.dropbox), allocatedOf(real));
    EXPECT_EQ(CloudDownloads::downloadedSize(s.dropbox + "/to-folder"), 0);  // a root that is a link
    EXPECT_EQ(CloudDownloads::downloadedSize(s.mac.path("~/Nothing")), 0);
}

// A provider that answers from a table and notes every eviction asked of it.
struct SpyProvider : brimstell::FileProvider {
    std::set<std::string> notUploaded, pinned, conflicts, failing;
    std::set<std::string> evicted;
    std::optional<brimstell::CloudItemFacts> facts(const brimstell::CloudFile& f) override {
        return brimstell::CloudItemFacts{true, notUploaded.count(f.relative) == 0, conflicts.count(f.relative) > 0};
    }
    std::optional<CloudError> evict(const brimstell::CloudFile& f) override {
        evicted.insert(f.relative);
        if (pinned.count(f.relative)) return CloudError{"NSFileProviderErrorDomain", -2006, nullptr};
        if (failing.count(f.relative)) return CloudError{"NSCocoaErrorDomain", 513, nullptr};
        return std::nullopt;
    }
};

TEST(CloudDownloads, KeptFilesAreNeverEvictedOrCounted) {
    Cloud s;
    for (const char* name : {"draft.txt", "pinned.txt", "conflict.txt", "failing.txt", "plain.txt"}) {
        s.mac.writeFileOfSize(std::string("~/Library/CloudStorage/Dropbox/") + name, 10'000);
    }
    brimstell::addCloudOnlyFile(s.mac, "~/Library/CloudStorage/Dropbox/cloud-only.txt", 10'000);
    SpyProvider spy;
    spy.notUploaded = {"draft.txt"};
    spy.pinned = {"pinned.txt"};
    spy.conflicts = {"conflict.txt"};
    spy.failing = {"failing.txt"};
    const auto r = CloudDownloads::remove({s.dropbox}, spy);
    EXPECT_EQ(spy.evicted, (std::set<std::string>{"pinned.txt", "failing.txt", "plain.txt"}));
    EXPECT_EQ(r.releasedFiles, 1u);
    EXPECT_EQ(r.releasedBytes, allocatedOf(s.dropbox + "/plain.txt"));
    EXPECT_EQ(r.notUploaded, 1u);
    EXPECT_EQ(r.keptOffline, 1u);
    EXPECT_EQ(r.conflicts, 1u);
    EXPECT_EQ(r.failed, 1u);
}

TEST(CloudDownloads, SandboxReleaseLeavesFilesListedWithNothingAllocated) {
    Cloud s;
    brimstell::addCloudFolders(s.mac);
    const auto report = s.iCloud + "/Documents/Report.pages";
    const auto novel = s.iCloud + "/Drafts/Novel.docx";
    const auto outside = s.mac.writeFileOfSize("~/Downloads/kept.dmg", 500'000);
    const auto expected = allocatedOf(report) + allocatedOf(s.dropbox + "/Projects/site.zip");
    const auto novelBytes = allocatedOf(novel);

    const auto r = CloudDownloads::remove({s.iCloud, s.dropbox});
    EXPECT_EQ(r.releasedBytes, expected);
    EXPECT_EQ(r.releasedFiles, 2u);
    EXPECT_EQ(r.notUploaded, 1u);
    EXPECT_EQ(r.keptOffline, 1u);
    EXPECT_EQ(r.failed, 0u);  // the links in Dropbox were never handed to the provider
    EXPECT_EQ(allocatedOf(report), 0);
    EXPECT_EQ(lengthOf(report), 2'000'000);
    EXPECT_EQ(allocatedOf(novel), novelBytes);
    EXPECT_GE(allocatedOf(s.dropbox + "/Taxes 2025.pdf"), 1'500'000);
    EXPECT_GE(allocatedOf(outside), 500'000);  // behind a link in Dropbox: untouched
    EXPECT_EQ(CloudModel::resultLine(r), "Released 6 MB; 1 not yet uploaded, kept; 1 kept: set to stay available offline");
    EXPECT_EQ(CloudDownloads::downloadedSize(s.iCloud), novelBytes);
}

TEST(CloudDownloads, OnlyCloudFoldersAreReleased) {
    Cloud s;
    brimstell::addCloudFolders(s.mac);
    const auto notes = s.mac.writeFileOfSize("~/Documents/Notes.txt", 100'000);
    const auto inside = s.dropbox + "/Projects/site.zip";
    const auto r = CloudDownloads::remove({s.mac.path("~/Documents"), s.dropbox + "/Projects", s.mac.home()});
    EXPECT_EQ(r.releasedFiles, 0u);
    EXPECT_GE(allocatedOf(notes), 100'000);
    EXPECT_GE(allocatedOf(inside), 4'000'000);
}

TEST(CloudDownloads, KeptOfflineIsRememberedPerFolderAndReported) {
    Cloud s;
    brimstell::addCloudFolders(s.mac);
    auto& settings = *s.host->settings;
    // One remembered under OneDrive, which this release doesn't touch, and one under Dropbox that
    // the user has since let go of.
    settings.set("cloud.keptOffline", quorv::Value::strings({"/Users/ann/Library/CloudStorage/Dropbox/Old.pdf",
                                                             "/Users/ann/Library/CloudStorage/OneDrive-Contoso/Shared/Budget.xlsx"}));
    CloudDownloads::remove({s.dropbox});
    EXPECT_EQ(settings.stringArray("cloud.keptOffline"),
              (std::vector<std::string>{"/Users/ann/Library/CloudStorage/Dropbox/Taxes 2025.pdf",
                                        "/Users/ann/Library/CloudStorage/OneDrive-Contoso/Shared/Budget.xlsx"}));
    const auto entries = CloudDownloads::scan();
    ASSERT_EQ(entries.size(), 4u);
    for (const auto& e : entries) {
        EXPECT_EQ(e.keptOffline, e.name == "Dropbox" || e.name == "OneDrive" ? 1u : 0u) << e.name;
    }
    // Nothing kept any more: the key goes.
    settings.set("cloud.keptOffline", quorv::Value::strings({"/Users/ann/Library/CloudStorage/Dropbox/Taxes 2025.pdf"}));
    ::unlink(s.mac.path("~/Library/CloudStorage/Dropbox/Taxes 2025.pdf").c_str());
    CloudDownloads::remove({s.dropbox});
    EXPECT_FALSE(settings.object("cloud.keptOffline").has_value());
}

TEST(CloudDownloads, KeptOfflineListStaysSmallAndSurvivesHostileValues) {
    Cloud s;
    brimstell::addCloudFolders(s.mac);
    auto& settings = *s.host->settings;
    settings.set("cloud.keptOffline", "many");
    for (const auto& e : CloudDownloads::scan()) EXPECT_EQ(e.keptOffline, 0u) << e.name;
    std::vector<std::string> old;
    for (int i = 0; i < 600; ++i) old.push_back("/Users/ann/Library/CloudStorage/OneDrive-Contoso/f" + std::to_string(1000 + i));
    old.push_back("relative/path");
    settings.set("cloud.keptOffline", quorv::Value::strings(old));
    CloudDownloads::remove({s.dropbox});
    const auto kept = settings.stringArray("cloud.keptOffline").value_or(std::vector<std::string>{});
    ASSERT_EQ(kept.size(), 500u);
    EXPECT_EQ(kept.front(), "/Users/ann/Library/CloudStorage/Dropbox/Taxes 2025.pdf");
    EXPECT_EQ(kept.back(), "/Users/ann/Library/CloudStorage/OneDrive-Contoso/f1498");
}

TEST(CloudDownloads, KeptOfflineErrors) {
    const auto wrap = [](CloudError inner, const char* domain = "NSCocoaErrorDomain", long code = 256) {
        return CloudError{domain, code, std::make_shared<CloudError>(std::move(inner))};
    };
    const CloudError pinned{"NSFileProviderErrorDomain", -2006, nullptr};
    const struct {
        CloudError error;
        bool kept;
    } cases[] = {
        {pinned, true},
        {wrap(pinned), true},
        {wrap(pinned, "NSFileProviderErrorDomain", -1005), true},
        {CloudError{"NSFileProviderErrorDomain", -2005, nullptr}, false},
        {CloudError{"NSCocoaErrorDomain", -2006, nullptr}, false},
        {CloudError{"nsfileprovidererrordomain", -2006, nullptr}, false},
        {wrap(CloudError{"NSPOSIXErrorDomain", 1, nullptr}), false},
        {wrap(wrap(pinned)), false},  // only the error itself and its underlying one are read
        {CloudError{}, false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(CloudDownloads::isKeptOffline(cases[i].error), cases[i].kept) << i;
}

TEST(CloudDownloads, Texts) {
    EXPECT_STREQ(CloudModel::measuringText, "Measuring cloud folders");
    EXPECT_STREQ(CloudModel::removingText, "Removing downloads");
    EXPECT_STREQ(CloudModel::guidanceText, "Downloaded cloud files: **Remove Download** in Finder (OneDrive: **Free Up Space**).");
    EXPECT_EQ(CloudModel::confirmText(12'000'000), "Release 12 MB of downloaded files? They stay in the cloud and download again when opened.");
    const struct {
        CloudReleaseResult result;
        const char* line;
    } cases[] = {
        {{}, "Released 0 bytes"},
        {{1'234'567, 3, 0, 0, 0, 0, false}, "Released 1.2 MB"},
        {{5'000'000, 1, 2, 0, 0, 0, false}, "Released 5 MB; 2 not yet uploaded, kept"},
        {{0, 0, 0, 1, 0, 0, false}, "Released 0 bytes; 1 kept: set to stay available offline"},
        {{999, 1, 1, 4, 2, 3, false},
         "Released 999 bytes; 1 not yet uploaded, kept; 4 kept: set to stay available offline; "
         "2 with unresolved conflicts, kept; 3 could not be released"},
    };
    for (const auto& c : cases) EXPECT_EQ(CloudModel::resultLine(c.result), c.line);
}

TEST(CloudDownloads, NothingToReleaseOnLinux) {
    Cloud s;
    brimstell::addCloudFolders(s.mac);
    auto onLinux = std::make_shared<quorv::Host>(*s.host);
    onLinux->platform = quorv::Platform::linux;
    onLinux->sandbox = false;
    quorv::HostScope scope(onLinux);
    EXPECT_TRUE(CloudDownloads::roots().empty());
    CloudModel model;
    model.scan();
    EXPECT_TRUE(model.providers.empty());
    EXPECT_EQ(model.status(), "Nothing to release here: Linux has no cloud file provider that can turn a downloaded file "
                              "back into a cloud-only one.");
    EXPECT_EQ(CloudDownloads::remove({s.dropbox}).releasedFiles, 0u);
    EXPECT_GE(allocatedOf(s.dropbox + "/Projects/site.zip"), 4'000'000);
}

TEST(CloudDownloads, ModelReleasesTheTickedAndMeasuresAgain) {
    Cloud s;
    brimstell::addCloudFolders(s.mac);
    CloudModel model;
    model.scan();
    ASSERT_EQ(model.providers.size(), 4u);
    EXPECT_EQ(model.total, model.selectedSize);
    for (auto& p : model.providers) p.selected = p.name == "OneDrive";
    model.recount();
    const auto r = model.removeSelected();
    EXPECT_EQ(r.releasedFiles, 1u);
    EXPECT_EQ(r.conflicts, 1u);
    EXPECT_EQ(model.status(), "Released 803 kB; 1 with unresolved conflicts, kept");
    for (const auto& p : model.providers) EXPECT_EQ(p.selected, p.name == "OneDrive") << p.name;
}

}  // namespace
