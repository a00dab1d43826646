// Use of the ion heaps.
#include "board.h"
#include "subject.h"

#include <cerrno>

namespace tools {
namespace {

constexpr const char* none = "this host has no ion heaps (try --simulate-board)";
constexpr std::size_t heaps_max = 255; // their count is one byte

int ask(board& server, sample& into) {
    const int code = server.peripherals.get_ion_info(nullptr);
    if (code < 0)
        return code;
    const auto& heaps = server.peripherals.ion_parser->ion_vec;
    for (const ion_info& heap : heaps)
        into.add(field_text(heap.ion_name), heap.used);
    if (heaps.empty())
        into.faults.emplace_back(none);
    if (heaps.size() == heaps_max)
        into.notes.push_back("the server names at most " + std::to_string(heaps_max) +
                             " ion heaps");
    return code;
}

std::string explain(int code) {
    return code == -EACCES || code == -EPERM ? "the server may not read /sys/kernel/debug/ion: run "
                                               "monsrv as root with --user root"
                                             : "";
}

const subject_registration registered([] {
    subject ion{"ion",
                "ion_heap",
                "Use of the ion heaps",
                {label("heap", "Heap", "Name of the heap"),
                 gauge("used_bytes", unit::bytes, "Bytes in use").column("used")},
                [](const selection&) -> asker { return ask; }};
    ion.lacking = none;
    ion.explain = explain;
    ion.library_report = [](board& server, std::ostream& out) {
        const int code = server.peripherals.get_ion_info(&out);
        out << "\n";
        return code;
    };
    ion.place = 80;
    ion.summary_rows = 4;
    return ion;
}());

} // namespace
} // namespace tools
