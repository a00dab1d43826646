// Network bandwidth of devices and processes.
#include "net_stat.h"

#include "common_func.h"
#include "platform_log.h"

#include <algorithm>
#include <cstring>

namespace {
constexpr std::size_t name_size = sizeof(net_stat::dev_name);
constexpr std::size_t device_size = name_size + 8;
constexpr std::size_t count_size = 4;

// With the most devices, only the process count still fits.
constexpr std::size_t devices_max = (answer_payload_max - count_size) / device_size;
static_assert(count_size + devices_max * device_size + count_size == answer_payload_max);

// Reads the count at `offset`, and cuts it to as many records of `size` bytes as fit after it.
std::size_t read_count(const unsigned char* msg, std::size_t offset, std::size_t size) {
    const auto count = static_cast<std::int32_t>(u8_to_u32(msg + offset));
    const std::size_t fits = (answer_payload_max - offset - count_size) / size;
    return count <= 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(count), fits);
}

void update(net_stat& entry, std::uint64_t total, unsigned long delta_ms) {
    entry.rate = 0;
    if (delta_ms != 0)
        entry.rate =
            static_cast<double>(total - entry.total) / static_cast<double>(delta_ms) * 1000.0;
    entry.total = total;
}
} // namespace

int net_stat_parse::parse_net_stat(unsigned char* msg, unsigned long delta_ms) {
    const std::size_t devices = read_count(msg, 0, device_size);
    const unsigned char* device = msg + count_size;
    for (std::size_t i = 0; i < devices; ++i, device += device_size) {
        net_stat& entry = dev_result[static_cast<int>(i)];
        std::memcpy(entry.dev_name, device, name_size - 1);
        update(entry, u8_to_u64(device + name_size), delta_ms);
    }

    const std::size_t offset = count_size + devices * device_size;
    const std::size_t processes = read_count(msg, offset, sizeof(process_net_s));
    const unsigned char* record = msg + offset + count_size;
    for (std::size_t i = 0; i < processes; ++i, record += sizeof(process_net_s)) {
        process_net_s process;
        std::memcpy(&process, record, sizeof process);
        auto found = pid_result.find(process.pid);
        if (found == pid_result.end())
            __android_log_print(ANDROID_LOG_ERROR, nullptr, "recive pid %d not in pid map\n",
                                process.pid);
        else
            update(found->second, process.total, delta_ms);
    }
    return 1;
}
