// Block devices, partitions, temperatures, cooling devices and ion heaps.
#include "peri.h"

#include "text_reader.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>

namespace {
// How many records follow the count byte of a payload: at most as many as it can hold.
template<class Record>
std::size_t record_count(const unsigned char* payload) {
    constexpr std::size_t most = (answer_payload_max - 1) / sizeof(Record);
    return std::min<std::size_t>(payload[0], most);
}

template<class Record>
void copy_records(const unsigned char* payload, std::size_t count, Record* records) {
    if (count > 0)
        std::memcpy(records, payload + 1, count * sizeof(Record));
}

template<class Record>
void read_list(const unsigned char* payload, std::vector<Record>& list) {
    list.resize(record_count<Record>(payload));
    copy_records(payload, list.size(), list.data());
}

// Reads the number of each line into `value`, which so ends as the last one.
int read_last_number(std::string_view text, std::uint64_t& value, const char* failure) {
    try {
        text_reader lines(text);
        for (std::string_view line; lines.next_line(line);)
            lines.fields_of(line).number(value);
        return 1;
    } catch (const std::exception& e) {
        std::cout << failure << e.what() << std::endl;
        return 0;
    }
}
} // namespace

int block_stat_parser::block_stat_parse(unsigned char* msg) {
    const auto count = static_cast<std::uint8_t>(record_count<block_stat>(msg));
    last_stats = std::move(stats);
    // No rate is computed across a change of the device list.
    if (last_stats && last_stats->num != count)
        last_stats.reset();
    stats = std::make_unique<block_stats>(count);
    copy_records(msg, count, stats->stat);
    return 0;
}

int partition_parser::partition_parse(unsigned char* msg) {
    read_list(msg, part_vec);
    return 1;
}

int thermal_parser::parse_thermal(unsigned char* msg) {
    return parse_thermal_msg(std::string(payload_text(msg)));
}

int thermal_parser::parse_thermal_msg(const std::string& msg) {
    return read_last_number(msg, temp, "parse_thermal failed!");
}

int cooling_parser::parse_cooling(unsigned char* msg) {
    return parse_cooling_msg(std::string(payload_text(msg)));
}

int cooling_parser::parse_cooling_msg(const std::string& msg) {
    return read_last_number(msg, stat, "parse_cooling failed!");
}

int all_thermal_parser::parse_all(unsigned char* msg) {
    try {
        all_co.clear();
        all_th.clear();
        std::string_view rest(reinterpret_cast<const char*>(msg) + 2, answer_payload_max - 2);
        auto next_text = [&rest] {
            const std::string_view text = rest.substr(0, rest.find('\0'));
            rest.remove_prefix(std::min(text.size() + 1, rest.size()));
            return std::string(text);
        };
        cooling_parser cooling;
        for (int i = 0; i < msg[0]; ++i) {
            cooling.parse_cooling_msg(next_text());
            all_co.push_back(cooling.stat);
        }
        thermal_parser thermal;
        for (int i = 0; i < msg[1]; ++i) {
            thermal.parse_thermal_msg(next_text());
            all_th.push_back(thermal.temp);
        }
        return 1;
    } catch (const std::exception& e) {
        std::cout << "parse all thermal failed!" << e.what() << std::endl;
        return 0;
    }
}

int ion_info_parser::parse_ion_info(unsigned char* msg) {
    read_list(msg, ion_vec);
    return 1;
}
