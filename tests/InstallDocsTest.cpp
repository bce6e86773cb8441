// The man page and the shell completions know every command the command line has.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/TestSupport.hpp"

namespace {

using testing_support::readText;
using testing_support::runProgram;

// The subcommands a --help lists, in order.
std::vector<std::string> subcommandsOf(const std::vector<std::string>& command) {
    std::vector<std::string> args = command;
    args.push_back("--help");
    const auto help = runProgram(BRIMSTELL_CLI_EXE, args, {}).output;
    std::vector<std::string> names;
    std::istringstream lines(help.substr(help.find("Subcommands:") == std::string::npos ? help.size() : help.find("Subcommands:")));
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && line.rfind("  ", 0) == 0) {
        const auto start = line.find_first_not_of(' ');
        names.push_back(line.substr(start, line.find(' ', start) - start));
    }
    return names;
}

// "brimstell agent on" as the man page writes it: roff escapes each hyphen.
std::string inRoff(std::string text) {
    std::string out;
    for (const char c : text) out += c == '-' ? std::string("\\-") : std::string(1, c);
    return out;
}

TEST(InstallDocs, ManPageAndCompletionsNameEveryCommand) {
    const std::string man = readText(BRIMSTELL_SOURCE_DIR "/docs/brimstell.1");
    const std::string bash = readText(BRIMSTELL_SOURCE_DIR "/docs/completions/brimstell.bash");
    const std::string zsh = readText(BRIMSTELL_SOURCE_DIR "/docs/completions/_brimstell");
    ASSERT_FALSE(man.empty());
    const auto top = subcommandsOf({});
    ASSERT_GE(top.size(), 12u);
    for (const auto& command : top) {
        EXPECT_NE(bash.find(command), std::string::npos) << command;
        EXPECT_NE(zsh.find("'" + command + ":"), std::string::npos) << command;
        const auto inner = subcommandsOf({command});
        if (inner.empty()) {
            EXPECT_NE(man.find("brimstell " + inRoff(command)), std::string::npos) << command;
        }
        for (const auto& sub : inner) {
            const bool listed = man.find("brimstell " + inRoff(command) + " " + inRoff(sub)) != std::string::npos ||
                                man.find("\\fB" + inRoff(sub) + "\\fR") != std::string::npos;
            EXPECT_TRUE(listed) << command << " " << sub;
            EXPECT_NE(bash.find(sub), std::string::npos) << command << " " << sub;
            EXPECT_NE(zsh.find(" " + sub), std::string::npos) << command << " " << sub;
        }
    }
}

}  // namespace
