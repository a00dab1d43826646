// What keeps the fuzz targets quiet: decoders print, and log what they refuse.
#include "fuzz_support.h"
#include "platform_log.h"

#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <streambuf>

namespace {
class dropping_buffer : public std::streambuf {
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

dropping_buffer dropped;
} // namespace

std::ostream& fuzz::report() {
    static std::unique_ptr<std::ostream> stream;
    stream = std::make_unique<std::ostream>(&dropped);
    return *stream;
}

extern "C" {
int LLVMFuzzerInitialize(int*, char***);
const char* __lsan_default_suppressions();

int LLVMFuzzerInitialize(int*, char***) {
    std::cout.rdbuf(&dropped);
    return 0;
}

// ZeroMQ's threads outlive main.
const char* __lsan_default_suppressions() {
    return "leak:libzmq\n";
}

int __android_log_print(int, const char*, const char* format, ...) {
    char line[1024];
    std::va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    return n;
}
}
