// The interrupt table, compared with streams.
#include "fuzz_support.h"
#include "stream_way.h"

#include <iostream>
#include <stdexcept>
#include <tuple>

namespace {
auto figures(const interrupt& r) {
    return std::tie(r.logic_int_num, r.hardware_int_num, r.int_name, r.int_dev, r.int_cnt,
                    r.trigger_mode, r.IPI_int_num, r.IPI_int_describe, r.err_cnt);
}

// A stream has no limit, so it is not asked for tables that the library refuses for their size.
bool is_small(const std::string& text) {
    const auto headings = std::count(text.begin(), text.end(), 'C');
    return headings * std::count(text.begin(), text.end(), '\n') <= 409600;
}
} // namespace

void fuzz_interrupts(const std::uint8_t* data, std::size_t size) {
    const fuzz::text_payload text(fuzz::input(data, size).text());
    interrupt_parser parser;
    std::cout.setf(size % 2 == 0 ? std::ios::left : std::ios::right, std::ios::adjustfield);
    const bool decoded = parser.parse_interrupt(text.data()) == 1;
    if (!is_small(text.text()))
        return;
    interrupt_parser twin;
    bool twin_decoded = true;
    try {
        stream_way::interrupts(text.text(), twin);
    } catch (const std::logic_error&) {
        twin_decoded = false;
    }
    fuzz::expect(decoded == twin_decoded, "result");
    fuzz::expect(parser.interrupts->size() == twin.interrupts->size(), "number of records");
    for (std::size_t i = 0; i < twin.interrupts->size(); ++i)
        fuzz::expect(figures(*(*parser.interrupts)[i]) == figures(*(*twin.interrupts)[i]),
                     "record");
}

static const fuzz::target registered("interrupts", fuzz_interrupts);
