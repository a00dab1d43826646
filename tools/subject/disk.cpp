// What is read from and written to every block device.
#include "board.h"
#include "subject.h"

namespace tools {
namespace {

int ask(board& server, sample& into) {
    const int code = server.peripherals.get_block_usage(nullptr);
    if (code < 0)
        return code;
    const block_stats& devices = *server.peripherals.block_parser->stats;
    for (int i = 0; i < devices.num; ++i) {
        const block_stat& each = devices.stat[i];
        into.add(field_text(each.name), each.rd_kb * 1024, each.wr_kb * 1024);
    }
    return code;
}

const subject_registration registered([] {
    subject disk{
        "disk",
        "disk",
        "What is read from and written to every block device",
        {label("device", "Device", "Name of the block device"),
         counter("read_bytes", unit::bytes, "Bytes read since boot").column("read", 3),
         counter("written_bytes", unit::bytes, "Bytes written since boot").column("written", 3),
         rate("read_bytes_per_second", unit::bytes_per_second, "Bytes read in a second")
             .per_second_of("read_bytes")
             .column("rd_kB/s"),
         rate("written_bytes_per_second", unit::bytes_per_second, "Bytes written in a second")
             .per_second_of("written_bytes")
             .column("wr_kB/s")},
        [](const selection&) -> asker { return ask; }};
    disk.library_report = [](board& server, std::ostream& out) {
        const int code = server.peripherals.get_block_usage(&out);
        out << "\n";
        return code;
    };
    disk.place = 40;
    disk.summary_rows = 8;
    return disk;
}());

} // namespace
} // namespace tools
