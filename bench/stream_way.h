// Decoding with the standard library's streams: what the parsers are compared with.
#ifndef MONCL_BENCH_STREAM_WAY_H
#define MONCL_BENCH_STREAM_WAY_H

#include "client.h"

/// Decodes one text into the records that the library's own parser makes of it.
struct stream_way {
    static void cpus(const std::string& text, cpus_stats_parser& parser);
    static void interrupts(const std::string& text, interrupt_parser& parser);
    static void status(const std::string& text, process_stat& record);
    static void io(const std::string& text, process_io& record);
    static void memory(const std::string& text, meminfo& record);
};

#endif
