// The load of an accelerator core.
#include "fuzz_support.h"
#include "nnu_ratio_manager.h"

void fuzz_accelerator(const std::uint8_t* data, std::size_t size) {
    fuzz::input in(data, size);
    nnu_ratio_manager manager;
    for (int i = 0; i < fuzz::most_pieces && !in.empty(); ++i) {
        const fuzz::text_payload text(in.text());
        manager.nnu_parser->parse_nnu_ratio(text.data());
        manager.show_result(manager.nnu_parser, fuzz::report());
    }
}

static const fuzz::target registered("accelerator", fuzz_accelerator);
