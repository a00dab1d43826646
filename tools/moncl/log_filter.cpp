// The program's own definition of the platform's log call.
#include "log_filter.h"

#include "platform_log.h"

#include <cstdarg>
#include <cstdio>

extern "C" int __android_log_print(int, const char* tag, const char* format, ...) {
    if (!tools::show_log)
        return 0;
    char text[512];
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return std::fprintf(stderr, "%s: %s", tag != nullptr ? tag : "log", text);
}
