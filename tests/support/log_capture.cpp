// The platform's log call for all tests, and the leaks that are by design.
#include "log_capture.h"

#include "platform_log.h"

#include <cstdarg>
#include <cstdio>

extern "C" int __android_log_print(int prio, const char* tag, const char* format, ...) {
    char text[1024];
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::lock_guard<std::mutex> guard(log_capture::lock);
    log_capture::captured +=
        std::to_string(prio) + " " + (tag != nullptr ? tag : "-") + ": " + text;
    return 1;
}

// The library leaves sockets open by design, and ZeroMQ's threads outlive main.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libzmq\n";
}
