// Block devices, partitions, ion heaps, temperatures and cooling devices.
#include "fuzz_support.h"
#include "peri_stat_manager.h"

namespace {
void decode_numbers(fuzz::input in) {
    peri_stat_manager manager;
    std::uint64_t expected = 0;
    for (int i = 0; i < fuzz::most_pieces && !in.empty(); ++i) {
        const fuzz::text_payload text(in.text());
        fuzz::last_number(text.text(), expected);
        manager.th_parser->parse_thermal(text.data());
        manager.co_parser->parse_cooling(text.data());
        fuzz::expect(manager.th_parser->temp == expected, "temperature");
        fuzz::expect(manager.co_parser->stat == expected, "cooling state");
        manager.show_result(manager.th_parser, fuzz::report());
    }
}

void decode_records(fuzz::input in, int kind) {
    peri_stat_manager manager;
    for (int i = 0; i < fuzz::most_pieces && !in.empty(); ++i) {
        const std::string_view payload = in.piece();
        if (kind == 0)
            fuzz::answer(manager, manager.block_parser, 20, payload);
        else if (kind == 1)
            fuzz::answer(manager, manager.part_parser, 25, payload);
        else if (kind == 2)
            fuzz::answer(manager, manager.ion_parser, 24, payload);
        else
            fuzz::answer(manager, manager.all_th_parser, 19, payload);
    }
}
} // namespace

void fuzz_peripherals(const std::uint8_t* data, std::size_t size) {
    fuzz::input in(data, size);
    const int kind = in.byte() % 5;
    if (kind == 4)
        decode_numbers(in);
    else
        decode_records(in, kind);
}

static const fuzz::target registered("peripherals", fuzz_peripherals);
