// The log for hosts that lack the platform's: writes each message as one line to standard error. It
// is weak, and alone in its file, so that a program's own definition takes precedence.
#include "platform_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

extern "C" __attribute__((weak, visibility("default"))) int
__android_log_print(int prio, const char* tag, const char* format, ...) {
    constexpr char letters[] = "??VDIWEFS";
    const char letter = prio >= 0 && prio < 9 ? letters[prio] : '?';
    char line[1024];
    constexpr int room = sizeof line - 1; // one byte stays free for the line end
    int used = std::snprintf(line, room, "%c/%s: ", letter, tag != nullptr ? tag : "");
    if (used < 0 || used >= room)
        used = 0;
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(line + used, static_cast<std::size_t>(room - used), format, args);
    va_end(args);
    std::size_t length = std::strlen(line);
    if (length == 0 || line[length - 1] != '\n')
        line[length++] = '\n';
    // One write for each message, so that lines of several threads do not mix.
    return static_cast<int>(write(STDERR_FILENO, line, length));
}
