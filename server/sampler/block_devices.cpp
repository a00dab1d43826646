// Kilobytes read from and written to each block device since boot.
#include "sampler.h"

#include "mon_peri.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>

namespace monsrv {
namespace {

bool ends_in_digit(const std::string& name) {
    return !name.empty() && std::isdigit(static_cast<unsigned char>(name.back())) != 0;
}

// The kernel's own naming: sda1 is a partition of sda, nvme0n1p1 one of nvme0n1.
bool is_named_as_partition_of(const std::string& name, const std::string& disk) {
    const std::string start = ends_in_digit(disk) ? disk + "p" : disk;
    return name.size() > start.size() && name.compare(0, start.size(), start) == 0 &&
           std::all_of(name.begin() + static_cast<std::ptrdiff_t>(start.size()), name.end(),
                       [](unsigned char c) { return std::isdigit(c) != 0; });
}

// Whole devices are those that /sys/block lists. A tree of files may hold it in part or not at all:
// there devices that it does not list are judged by their names.
class whole_devices {
public:
    explicit whole_devices(const host& env) : folder_(env.path("/sys/block")) {
        std::error_code ignored;
        lists_all_ = env.is_live() && std::filesystem::is_directory(folder_, ignored);
    }

    bool contains(const std::string& name) {
        const bool listed = is_listed(name);
        if (!listed && (lists_all_ || is_named_as_partition_of(name, latest_)))
            return false;
        latest_ = name; // its partitions follow it
        return true;
    }

private:
    bool is_listed(std::string name) const {
        std::replace(name.begin(), name.end(), '/', '!');
        std::error_code ignored;
        return std::filesystem::exists(std::filesystem::symlink_status(folder_ / name, ignored));
    }

    std::filesystem::path folder_;
    bool lists_all_ = false;
    std::string latest_;
};

// Kernels set up some of these ahead of any use.
bool is_spare(const std::string& name) {
    for (const char* kind : {"loop", "ram", "zram", "nbd"})
        if (name.rfind(kind, 0) == 0)
            return true;
    return false;
}

int sample(const host& env, reply& answer) {
    std::string text;
    if (const int error = env.read_again("/proc/diskstats", text); error < 0)
        return error;
    whole_devices whole(env);
    std::vector<block_stat> devices;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        unsigned long long skipped = 0;
        unsigned long long sectors_read = 0;
        unsigned long long sectors_written = 0;
        std::string name;
        std::istringstream fields(line);
        fields >> skipped >> skipped >> name >> skipped >> skipped >> sectors_read >> skipped >>
            skipped >> skipped >> sectors_written;
        if (!fields || !whole.contains(name))
            continue;
        if (sectors_read == 0 && sectors_written == 0 && is_spare(name))
            continue;
        block_stat device{};
        name.copy(device.name, sizeof device.name - 1);
        device.rd_kb = sectors_read / 2; // sectors of 512 bytes, whatever the device's own are
        device.wr_kb = sectors_written / 2;
        devices.push_back(device);
    }
    answer.add_counted(devices);
    return 0;
}

void install(sampler_table& table, const host& env) {
    table.on(peripheral_command, peripheral_request::block_devices,
             [&env](const request&, reply& answer) { return sample(env, answer); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
