// `brimstell cloud` against a sandbox Mac with cloud folders: the listing, its JSON, a release that
// asks first and keeps what it must, and the sentence on Linux.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "kit/sandbox/SandboxCloud.hpp"
#include "support/TestSupport.hpp"

namespace {

using testing_support::runProgram;

struct CloudCli : testing_support::CliMac {
    CloudCli() { brimstell::addCloudFolders(mac); }
    std::int64_t allocated(const std::string& systemPath) const {
        struct stat st {};
        return ::lstat(mac.path(systemPath).c_str(), &st) == 0 ? static_cast<std::int64_t>(st.st_blocks) * 512 : -1;
    }
};

TEST(CloudCli, ListsAndReleasesWithWhatItKeeps) {
    CloudCli s;
    auto r = s.run({"cloud"});
    ASSERT_EQ(r.status, 0) << r.errors;
    const std::string storage = s.mac.path("~/Library/CloudStorage/");
    for (const std::string& text :
         {"Dropbox          5.5 MB  " + storage + "Dropbox\n", "Google Drive    0 bytes  " + storage + "GoogleDrive-ann@example.com\n",
          "OneDrive         1.4 MB  " + storage + "OneDrive-Contoso\n",
          "iCloud Drive     2.3 MB  " + s.mac.path("~/Library/Mobile Documents/com~apple~CloudDocs") + "\n",
          std::string("9.2 MB downloaded in 4 cloud folders. `brimstell cloud release PROVIDER…` releases it: the files stay "
                      "listed and download again when opened.\n"
                      "Downloaded cloud files: **Remove Download** in Finder (OneDrive: **Free Up Space**).\n")}) {
        EXPECT_NE(r.output.find(text), std::string::npos) << text << "\n" << r.output;
    }

    r = s.run({"cloud", "release", "Dropbox"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.errors, "brimstell: not releasing downloads without --yes: there is no terminal to ask on\n");
    EXPECT_GE(s.allocated("~/Library/CloudStorage/Dropbox/Projects/site.zip"), 4'000'000);

    r = s.run({"cloud", "release", "dropbox", "icloud drive", "--yes"});
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_NE(r.output.find("Released 6 MB; 1 not yet uploaded, kept; 1 kept: set to stay available offline\n"
                            "Downloaded cloud files: **Remove Download** in Finder (OneDrive: **Free Up Space**).\n"),
              std::string::npos)
        << r.output;
    EXPECT_EQ(s.allocated("~/Library/CloudStorage/Dropbox/Projects/site.zip"), 0);

    r = s.run({"cloud", "--json"});
    ASSERT_EQ(r.status, 0) << r.errors;
    const auto j = nlohmann::json::parse(r.output);
    ASSERT_EQ(j["providers"].size(), 4u);
    EXPECT_EQ(j["providers"][0]["name"], "Dropbox");
    EXPECT_EQ(j["providers"][0]["keptOfflineItems"], 1);
    EXPECT_EQ(j["providers"][0]["bytes"], s.allocated("~/Library/CloudStorage/Dropbox/Taxes 2025.pdf"));
    EXPECT_EQ(j["providers"][2]["id"], "OneDrive-Contoso");

    r = s.run({"cloud", "release", "Nimbus", "--yes"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.errors, "brimstell: no cloud folder is called Nimbus; there are: Dropbox (Dropbox), Google Drive "
                        "(GoogleDrive-ann@example.com), OneDrive (OneDrive-Contoso), iCloud Drive (com~apple~CloudDocs)\n");
    EXPECT_EQ(s.run({"cloud", "release"}).status, 2);
}

TEST(CloudCli, SaysOnLinuxThatNothingCanBeReleased) {
    testing_support::TempDir home;
    const std::map<std::string, std::string> env{{"HOME", home.path()}, {"BRIMSTELL_PLATFORM", "linux"},
                                                 {"XDG_STATE_HOME", home / "state"}, {"XDG_CONFIG_HOME", home / "config"}};
    const std::string sentence =
        "Nothing to release here: Linux has no cloud file provider that can turn a downloaded file back into a cloud-only one.";
    auto r = runProgram(BRIMSTELL_CLI_EXE, {"cloud"}, env);
    EXPECT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(r.output, sentence + "\n");
    r = runProgram(BRIMSTELL_CLI_EXE, {"cloud", "--json"}, env);
    EXPECT_EQ(nlohmann::json::parse(r.output)["message"], sentence);
    r = runProgram(BRIMSTELL_CLI_EXE, {"cloud", "release", "Dropbox", "--yes"}, env);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.errors, "brimstell: " + sentence + "\n");
}

}  // namespace
