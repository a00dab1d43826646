// The memory figures, compared with streams.
#include "fuzz_support.h"
#include "peri_stat_manager.h"
#include "stream_way.h"

#include <stdexcept>

void fuzz_meminfo(const std::uint8_t* data, std::size_t size) {
    const fuzz::text_payload text(fuzz::input(data, size).text());
    meminfo expected;
    bool decoded = true;
    try {
        stream_way::memory(text.text(), expected);
    } catch (const std::logic_error&) {
        decoded = false;
    }
    peri_stat_manager manager;
    const bool result = manager.mem_parser->parse_meminfo(text.data()) == 1;
    fuzz::expect(result == decoded, "result");
    fuzz::expect(std::memcmp(&manager.mem_parser->mem, &expected, sizeof expected) == 0, "figures");
    manager.show_result(manager.mem_parser, fuzz::report());
}

static const fuzz::target registered("meminfo", fuzz_meminfo);
