// The tests' own definition of the platform's log call.
#include "log_capture.h"

#include "platform_log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {
std::mutex lock;
std::vector<std::string> captured;
} // namespace

extern "C" int __android_log_print(int prio, const char* tag, const char* format, ...) {
    char text[1024];
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::string line =
        std::to_string(prio) + " " + (tag != nullptr ? tag : "-") + ": " + std::string(text);
    if (!line.empty() && line.back() == '\n')
        line.pop_back();
    std::lock_guard<std::mutex> guard(lock);
    captured.push_back(line);
    return 1;
}

log_capture::log_capture() {
    std::lock_guard<std::mutex> guard(lock);
    captured.clear();
}

std::vector<std::string> log_capture::lines() const {
    std::lock_guard<std::mutex> guard(lock);
    return captured;
}

bool log_capture::has(const std::string& line) const {
    const std::vector<std::string> all = lines();
    return std::find(all.begin(), all.end(), line) != all.end();
}
