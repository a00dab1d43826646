// The memory of the machine.
#include "meminfo.h"

#include "text_number.h"

#include <exception>
#include <iostream>

namespace {
// The sizes that are taken from the text, before some are added up.
struct memory_sizes {
    std::uint64_t total = 0;
    std::uint64_t free = 0;
    std::uint64_t available = 0;
    std::uint64_t buffers = 0;
    std::uint64_t cached = 0;
    std::uint64_t slab = 0;
    std::uint64_t active_anon = 0;
    std::uint64_t inactive_anon = 0;
    std::uint64_t active_file = 0;
    std::uint64_t inactive_file = 0;
};

struct memory_key {
    std::string_view key;
    std::uint64_t memory_sizes::*value;
};

constexpr memory_key memory_keys[] = {
    {"MemTotal", &memory_sizes::total},
    {"MemFree", &memory_sizes::free},
    {"MemAvailable", &memory_sizes::available},
    {"Buffers", &memory_sizes::buffers},
    {"Cached", &memory_sizes::cached},
    {"Slab", &memory_sizes::slab},
    {"Active(anon)", &memory_sizes::active_anon},
    {"Inactive(anon)", &memory_sizes::inactive_anon},
    {"Active(file)", &memory_sizes::active_file},
    {"Inactive(file)", &memory_sizes::inactive_file},
};
} // namespace

int meminfo_parser::parse_meminfo(unsigned char* msg) {
    try {
        memory_sizes kb;
        for_each_figure(payload_text(msg), [&kb](std::string_view key, long value) {
            for (const memory_key& known : memory_keys)
                if (known.key == key)
                    kb.*known.value = static_cast<std::uint64_t>(value);
        });
        mem = {kb.total,
               kb.free,
               kb.available,
               kb.buffers,
               kb.cached,
               kb.slab,
               kb.active_file + kb.inactive_file,
               kb.active_anon + kb.inactive_anon};
        return 1;
    } catch (const std::exception& e) {
        std::cout << "parse_meminfo failed:" << e.what() << std::endl;
        return 0;
    }
}

void meminfo_parser::parseMeminfo(const std::string& msg,
                                  std::unordered_map<std::string, long>& values) {
    for_each_figure(msg,
                    [&](std::string_view key, long value) { values[std::string(key)] = value; });
}
