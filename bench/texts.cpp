// The texts that decoding is timed on.
#include "texts.h"

#include <cstdio>
#include <random>

namespace {
template<class... Args>
void append(std::string& text, const char* format, Args... args) {
    char line[256];
    std::snprintf(line, sizeof line, format, args...);
    text += line;
}
} // namespace

std::string cpu_table(int lines) {
    std::mt19937 random(1);
    std::string text;
    for (int i = 0; i < lines; ++i) {
        text += i == 0 ? "cpu " : "cpu" + std::to_string(i - 1);
        // Four days at 100 ticks a second, divided as on a half idle machine.
        for (unsigned most : {9000000, 20000, 3000000, 30000000, 150000, 1, 300000, 10000, 1, 1})
            append(text, " %u", static_cast<unsigned>(random() % most));
        text += "\n";
    }
    return text;
}

std::string interrupt_table(int cpus, int lines) {
    std::mt19937 random(2);
    std::string text = "    ";
    for (int cpu = 0; cpu < cpus; ++cpu)
        append(text, "       CPU%-3d", cpu);
    text += "\n";
    for (int line = 1; line <= lines; ++line) {
        append(text, "%3d:", line);
        // An interrupt fires on few CPUs; on the others its count is 0.
        for (int cpu = 0; cpu < cpus; ++cpu)
            append(text, " %10u",
                   random() % 8 == 0 ? static_cast<unsigned>(random() % 1000000) : 0U);
        append(text, "     GICv3 %3d Level     device%d\n", line + 16, line);
    }
    return text + "Err:          0\n";
}

std::string process_status() {
    return "12345 (browser) S 1 12345 12345 34816 -1 4194304 812345 1234 567 8 91234 23456 11 12 "
           "20 "
           "0 41 0 8123456 4123456789 91234 18446744073709551615 94512345678848 94512345699328 "
           "140723456789104 0 0 0 0 4096 65536 0 0 0 17 3 0 0 25 0 0 94512345715200 94512345716800 "
           "94512349999104 140723456791234 140723456791300 140723456791300 140723456794600 0\n";
}

std::string process_io_text() {
    return "rchar: 323934931\nwchar: 323929600\nsyscr: 632687\nsyscw: 632675\n"
           "read_bytes: 913408\nwrite_bytes: 323932160\ncancelled_write_bytes: 8192\n";
}

std::string memory_text() {
    const char* const keys[] = {
        "MemTotal:",      "MemFree:",        "MemAvailable:",   "Buffers:",
        "Cached:",        "SwapCached:",     "Active:",         "Inactive:",
        "Active(anon):",  "Inactive(anon):", "Active(file):",   "Inactive(file):",
        "Unevictable:",   "Mlocked:",        "SwapTotal:",      "SwapFree:",
        "Zswap:",         "Zswapped:",       "Dirty:",          "Writeback:",
        "AnonPages:",     "Mapped:",         "Shmem:",          "KReclaimable:",
        "Slab:",          "SReclaimable:",   "SUnreclaim:",     "KernelStack:",
        "PageTables:",    "SecPageTables:",  "NFS_Unstable:",   "Bounce:",
        "WritebackTmp:",  "CommitLimit:",    "Committed_AS:",   "VmallocTotal:",
        "VmallocUsed:",   "VmallocChunk:",   "Percpu:",         "HardwareCorrupted:",
        "AnonHugePages:", "ShmemHugePages:", "ShmemPmdMapped:", "FileHugePages:",
        "FilePmdMapped:", "CmaTotal:",       "CmaFree:",        "Hugetlb:",
        "DirectMap4k:",   "DirectMap2M:",    "DirectMap1G:"};
    std::mt19937 random(3);
    std::string text;
    for (const char* key : keys)
        append(text, "%-15s %8u kB\n", key, static_cast<unsigned>(random() % 33000000));
    return text;
}
