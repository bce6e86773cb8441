#include "cli/Spinner.hpp"

#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace cli {

Spinner::Spinner(std::string text) : text_(std::move(text)) {
    if (!::isatty(STDERR_FILENO)) return;
    thread_ = std::thread([this] {
        using namespace std::chrono_literals;
        static const char frames[] = {'|', '/', '-', '\\'};
        bool shown = false;
        for (int tick = 0; !stopping_; ++tick) {
            std::this_thread::sleep_for(100ms);
            if (tick < 3 || stopping_) continue;
            std::string line;
            {
                std::lock_guard lock(mutex_);
                line = text_;
            }
            std::fprintf(stderr, "\r\033[K%c %s", frames[tick % 4], line.c_str());
            std::fflush(stderr);
            shown = true;
        }
        if (shown) {
            std::fputs("\r\033[K", stderr);
            std::fflush(stderr);
        }
    });
}

void Spinner::setText(std::string text) {
    std::lock_guard lock(mutex_);
    text_ = std::move(text);
}

Spinner::~Spinner() { stop(); }

void Spinner::stop() {
    stopping_ = true;
    if (thread_.joinable()) thread_.join();
}

}  // namespace cli
