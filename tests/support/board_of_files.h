// One simulated server for the console's tests: the files of tests/data/board through monsrv's own
// samplers, and answers that no file of a test can cause. The first answer to each request comes
// from the files of before, the next ones from those of a second later.
#ifndef MONCL_TESTS_BOARD_OF_FILES_H
#define MONCL_TESTS_BOARD_OF_FILES_H

#include "child_process.h"
#include "manager_support.h"
#include "request_numbers.h"
#include "sampler_asker.h"
#include "scripted_server.h"

#include <map>

/// The files of one moment.
struct board_files : file_tree {
    /// @param later whether what has changed a second later is laid over the rest
    explicit board_files(bool later) {
        namespace fs = std::filesystem;
        const auto options = fs::copy_options::recursive | fs::copy_options::overwrite_existing;
        fs::copy(TEST_DATA "/board/before", root(), options);
        if (later)
            fs::copy(TEST_DATA "/board/after", root(), options);
    }
};

class board_of_files {
public:
    board_of_files() {
        server_.answer([this](int command, int sub_command, const std::string& request) {
            const std::string payload = request.substr(
                frame_header_size, static_cast<std::size_t>(header_of(request).msg_len));
            const bool later = asked_[{command, sub_command, payload}]++ > 0;
            return answer(command, sub_command, payload, later);
        });
    }
    int port() const { return server_.port(); }

private:
    answer_packets answer(int command, int sub_command, const std::string& payload, bool later) {
        if (command == cpu_command && sub_command == cpu_request::read_counters)
            return {packet(sub_command, counters(later))};
        if (command == peripheral_command && sub_command == peripheral_request::partitions)
            return {packet(sub_command, partitions())};
        const bool switches =
            (command == cpu_command && sub_command > cpu_request::interrupts) ||
            (command == network_command && sub_command != network_request::bandwidth);
        if (switches)
            return {packet(sub_command, "")};
        sampler_asker& files = later ? after_ : before_;
        const int result = files.ask(command, sub_command, payload);
        if (result < 0)
            return {error_packet(sub_command, result)};
        std::string bytes = files.bytes;
        if (command == network_command) // the processes, of which the files have none
            bytes.replace(bytes.size() - 4, 4,
                          native(1) + native(process_net_s{1300, later ? 52000U : 20000U}));
        return in_packets(sub_command, bytes);
    }

    static answer_packets in_packets(int sub_command, const std::string& bytes) {
        answer_packets packets;
        for (std::size_t at = 0; at == 0 || at < bytes.size(); at += answer_payload_max) {
            const std::string part = bytes.substr(at, answer_payload_max);
            const std::size_t announced = at == 0 ? bytes.size() : part.size();
            packets.push_back(packet(sub_command, part, static_cast<int>(announced)));
        }
        return packets;
    }

    // A machine without level-3 cache and stall counters.
    static std::string counters(bool later) {
        const std::uint64_t times = later ? 2 : 1;
        perf_counters all{};
        all.cycles = 1000000 * times;
        all.instructions = 500000 * times * times;
        all.cs = 100 * times;
        all.migrations = 3;
        all.page_faults = 40 * times;
        all.l1d_load = 200000 * times;
        all.l1d_misses = 5000 * times;
        all.branches = 90000 * times;
        all.branch_misses = 900 * times;
        return native(all);
    }

    static std::string partitions() {
        part_info root{};
        std::strcpy(root.part_name, "mmcblk0p2");
        root.f_bavail = 500000;
        root.f_blocks = 2000000;
        root.f_frsize = 4096;
        root.blocks_used = 1400000;
        return '\1' + native(root);
    }

    // The files of the one moment or the other, for all boards.
    static const std::string& files(bool later) {
        static const board_files before(false), after(true);
        return (later ? after : before).root();
    }

    sampler_asker before_{files(false), monsrv::simulated_board(1, std::chrono::seconds(100))};
    sampler_asker after_{files(true), monsrv::simulated_board(1, std::chrono::seconds(130))};
    std::map<std::tuple<int, int, std::string>, int> asked_;
    scripted_server server_;
};

#endif
