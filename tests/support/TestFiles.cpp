#include "support/TestFiles.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace testing_support {

namespace fs = std::filesystem;

void putFile(const std::string& path, const std::string& content, mode_t mode) {
    fs::create_directories(fs::path(path).parent_path());
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) {
        ADD_FAILURE() << "can't write " << path;
        return;
    }
    std::fwrite(content.data(), 1, content.size(), f);
    std::fclose(f);
    EXPECT_EQ(::chmod(path.c_str(), mode), 0) << path;
}

void putLink(const std::string& target, const std::string& at) {
    fs::create_directories(fs::path(at).parent_path());
    EXPECT_EQ(::symlink(target.c_str(), at.c_str()), 0) << at;
}

}  // namespace testing_support
