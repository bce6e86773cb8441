#pragma once
// Small builders for the trees tests lay out: files and links with the folders above them made.

#include <sys/types.h>

#include <string>

namespace testing_support {

// Writes content to path (folders above it made first) and gives it mode; a failure fails the test.
void putFile(const std::string& path, const std::string& content = "x", mode_t mode = 0644);
// A symbolic link at `at` to target, folders above it made first; a failure fails the test.
void putLink(const std::string& target, const std::string& at);

}  // namespace testing_support
