// One process's texts, compared with streams, and the records that are read in place.
#include "cpu_stat_manager.h"
#include "fuzz_support.h"
#include "stream_way.h"

#include <stdexcept>

namespace {
// Padding is equal as well, because all records start as zeros.
template<class Record>
bool same(const Record& a, const Record& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

void decode_texts(fuzz::input in) {
    cpu_stat_manager manager;
    auto status = std::make_shared<process_stat_parser>(1, 4);
    auto io = std::make_shared<process_io_parser>(1);
    for (int i = 0; i < fuzz::most_pieces && !in.empty(); ++i) {
        const fuzz::text_payload text(in.text());
        auto expected_status = std::make_unique<process_stat>();
        stream_way::status(text.text(), *expected_status);
        status->parse_process_stat(text.data(), 100);
        fuzz::expect(same(*status->last_process_stat, *expected_status), "status");
        manager.show_result(status, fuzz::report());

        process_io expected_io{};
        bool decoded = true;
        try {
            stream_way::io(text.text(), expected_io);
        } catch (const std::logic_error&) {
            decoded = false;
        }
        fuzz::expect((io->parse_process_io(text.data(), 1500) == 1) == decoded, "result of io");
        fuzz::expect(!decoded || same(*io->last_pio, expected_io), "io");
        manager.show_result(io, fuzz::report());
    }
}
} // namespace

void fuzz_processes(const std::uint8_t* data, std::size_t size) {
    fuzz::input in(data, size);
    cpu_stat_manager manager;
    switch (in.byte() % 3) {
    case 0:
        decode_texts(in);
        break;
    case 1:
        fuzz::answer(manager, manager.process_parser, 8, in.bytes(size));
        break;
    default:
        fuzz::answer(manager, manager.perf_parser, 11, in.bytes(size));
    }
    manager.client = nullptr;
}

static const fuzz::target registered("processes", fuzz_processes);
