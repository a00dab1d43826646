// The platform's log call: the toolchain's own declaration where it has one, else ours.
//
// The library only calls it. A target's log library, the fallback under platform/ or the program
// itself supplies it.
#ifndef MONCL_PLATFORM_LOG_H
#define MONCL_PLATFORM_LOG_H

#if __has_include(<android/log.h>)
#include <android/log.h>
#else
enum android_LogPriority { ANDROID_LOG_INFO = 4, ANDROID_LOG_ERROR = 6 };

/// Writes one message to the platform log.
/// @param prio   one of android_LogPriority
/// @param tag    module tag; may be null
/// @param format printf format of the text
/// @return a negative value on failure
extern "C" int __android_log_print(int prio, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
#endif

#endif
