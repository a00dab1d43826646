// Makes a fuzzer of the one target that is linked with this file, and drops what decoders print and
// log.
#include "fuzz_support.h"
#include "platform_log.h"

#include <cstdarg>
#include <cstdio>
#include <iostream>

extern "C" {
int LLVMFuzzerInitialize(int*, char***);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
const char* __lsan_default_suppressions();

int LLVMFuzzerInitialize(int*, char***) {
    std::cout.rdbuf(fuzz::report().rdbuf());
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::all_targets().front()->run(data, size);
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
