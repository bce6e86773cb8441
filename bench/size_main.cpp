// brimstell-sizebench: prints what the folder-size walker counts, in du's layout, so that
// bench/size.sh can time it against du on the same tree.
//
//   brimstell-sizebench [--kib] [--threads N] [--counts] PATH...
//
// One line per path: the allocated bytes (like `du -s -B1`), or with --kib the KiB rounded up
// (like `du -sk`), a tab and the path. All paths are walked at once and share the inode set, so
// an inode reachable from several paths counts for the first, as with du. --counts adds the
// files, folders and unreadable folders.
//
//   brimstell-sizebench --measure FILE -- COMMAND ARGS...
//
// Runs the command and writes "SECONDS MAX_RSS_KIB USER_SECONDS SYSTEM_SECONDS" to FILE, like
// `/usr/bin/time -f '%e %M %U %S' -o FILE`, for machines without GNU time.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kit/files/SizeWalker.hpp"

namespace {

int measure(const char* outFile, char** command) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = ::fork();
    if (pid < 0) return 127;
    if (pid == 0) {
        ::execvp(command[0], command);
        std::perror(command[0]);
        ::_exit(127);
    }
    int status = 0;
    struct rusage usage{};
    if (::wait4(pid, &status, 0, &usage) < 0) return 127;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (FILE* f = std::fopen(outFile, "w")) {
        auto secs = [](const timeval& tv) { return static_cast<double>(tv.tv_sec) + tv.tv_usec / 1e6; };
        std::fprintf(f, "%.3f %ld %.3f %.3f\n", seconds, usage.ru_maxrss, secs(usage.ru_utime), secs(usage.ru_stime));
        std::fclose(f);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 5 && std::strcmp(argv[1], "--measure") == 0 && std::strcmp(argv[3], "--") == 0) {
        return measure(argv[2], argv + 4);
    }
    bool kib = false;
    bool counts = false;
    brimstell::SizeWalker::Options options;
    std::vector<std::string> paths;
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        if (std::strcmp(a, "--kib") == 0) {
            kib = true;
        } else if (std::strcmp(a, "--counts") == 0) {
            counts = true;
        } else if (std::strcmp(a, "--threads") == 0 && i + 1 < argc) {
            options.threads = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 10));
        } else if (std::strcmp(a, "--") == 0) {
            for (++i; i < argc; ++i) paths.emplace_back(argv[i]);
        } else if (a[0] == '-' && a[1] != 0) {
            std::fprintf(stderr, "usage: brimstell-sizebench [--kib] [--threads N] [--counts] PATH...\n");
            return 2;
        } else {
            paths.emplace_back(a);
        }
    }
    if (paths.empty()) paths.emplace_back(".");
    const auto results = brimstell::SizeWalker::walkMany(paths, options);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const auto& r = results[i];
        const long long shown = kib ? (r.bytes + 1023) / 1024 : r.bytes;
        if (counts) {
            std::printf("%lld\t%s\tfiles=%lld folders=%lld unreadable=%lld\n", shown, paths[i].c_str(),
                        static_cast<long long>(r.files), static_cast<long long>(r.folders),
                        static_cast<long long>(r.unreadable));
        } else {
            std::printf("%lld\t%s\n", shown, paths[i].c_str());
        }
    }
    return 0;
}
