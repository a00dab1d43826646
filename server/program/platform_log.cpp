// What server and library log through the platform's call, as lines of monsrv's log.
#include "platform_log.h"

#include "log_lines.h"

#include <cstdarg>
#include <cstdio>

extern "C" int __android_log_print(int priority, const char*, const char* format, ...) {
    char text[1024];
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::string line = text;
    if (!line.empty() && line.back() == '\n')
        line.pop_back();
    const bool error = priority >= ANDROID_LOG_ERROR;
    monsrv::log_line(error ? monsrv::log_level::error : monsrv::log_level::info, line);
    return 0;
}
