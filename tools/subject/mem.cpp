// Memory of the board.
#include "board.h"
#include "subject.h"

namespace tools {
namespace {

// A figure that a kernel lacks decodes as 0, a value that none of these can have.
value kilobytes(std::uint64_t kb) {
    return kb == 0 ? value() : value(kb * 1024);
}

int ask(board& server, sample& into) {
    const int code = server.peripherals.get_meminfo(nullptr);
    if (code < 0)
        return code;
    const meminfo& mem = server.peripherals.mem_parser->mem;
    value used_percent;
    if (mem.memTotal > 0 && mem.memAvailable > 0)
        used_percent = 100.0 - 100.0 * static_cast<double>(mem.memAvailable) /
                                   static_cast<double>(mem.memTotal);
    into.add(kilobytes(mem.memTotal), kilobytes(mem.memAvailable), used_percent,
             kilobytes(mem.memfree), mem.buffer * 1024, kilobytes(mem.cached), kilobytes(mem.slab),
             kilobytes(mem.file), kilobytes(mem.anon));
    return code;
}

const subject_registration registered([] {
    subject mem{
        "mem",
        "memory",
        "Memory of the board",
        {gauge("total_bytes", unit::bytes, "All memory").column("total"),
         gauge("available_bytes", unit::bytes,
               "Memory that a new program can have without swapping")
             .column("available"),
         gauge("used_percent", unit::percent, "Share of memory that is not available")
             .column("%used"),
         gauge("free_bytes", unit::bytes, "Memory that nobody uses").column("free", 3),
         gauge("buffer_bytes", unit::bytes, "Buffers of block devices").column("buffers", 4),
         gauge("cached_bytes", unit::bytes, "Page cache").column("cached", 2),
         gauge("slab_bytes", unit::bytes, "The kernel's own objects").column("slab", 3),
         gauge("file_bytes", unit::bytes, "Pages of files, active and inactive").column("file", 4),
         gauge("anon_bytes", unit::bytes, "Pages of processes, active and inactive")
             .column("anon", 3)},
        [](const selection&) -> asker { return ask; }};
    mem.library_report = [](board& server, std::ostream& out) {
        const int code = server.peripherals.get_meminfo(&out);
        out << "\n";
        return code;
    };
    mem.place = 30;
    mem.summary_rows = 1;
    return mem;
}());

} // namespace
} // namespace tools
