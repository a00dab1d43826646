// Kilobytes read from and written to each block device since boot.
#include "sampler.h"

#include "mon_peri.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string_view>

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
// there the names of devices that it does not list decide.
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

constexpr std::size_t devices_max = (answer_payload_max - 1) / sizeof(block_stat);

// Kernels set up some of these ahead of any use.
bool is_unused_spare(const block_stat& device) {
    if (device.rd_kb != 0 || device.wr_kb != 0)
        return false;
    const std::string_view name(device.name);
    for (const std::string_view kind : {"loop", "ram", "zram", "nbd"})
        if (name.substr(0, kind.size()) == kind)
            return true;
    return false;
}

bool is_same_device(const block_stat& a, const block_stat& b) {
    return std::string_view(a.name) == b.name;
}

// Leaves the devices that fit: spares that were never used go first, the last ones before others.
void cut_to_fit(std::vector<block_stat>& devices) {
    for (std::size_t i = devices.size(); i-- > 0 && devices.size() > devices_max;)
        if (is_unused_spare(devices[i]))
            devices.erase(devices.begin() + static_cast<std::ptrdiff_t>(i));
    devices.resize(std::min(devices.size(), devices_max));
}

std::vector<block_stat> read_devices(const host& env, const std::string& text) {
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
        block_stat device{};
        name.copy(device.name, sizeof device.name - 1);
        device.rd_kb = sectors_read / 2; // sectors of 512 bytes, whatever the device's own are
        device.wr_kb = sectors_written / 2;
        devices.push_back(device);
    }
    return devices;
}

// Answers clients, and remembers which devices each was shown: it compares records by position and
// drops its previous sample only when their number changes.
class block_devices {
public:
    explicit block_devices(const host& env) : env_(env) {}

    int answer(std::uint8_t client_id, reply& answer) {
        std::string text;
        if (const int error = env_.read_again("/proc/diskstats", text); error < 0)
            return error;
        std::vector<block_stat> devices = read_devices(env_, text);
        cut_to_fit(devices);
        std::vector<block_stat>& before = shown_[client_id];
        // If as many devices as before are there but not the same ones, the client would compare
        // different devices. One record less makes it drop its previous sample; the next answer has
        // them all.
        if (devices.size() == before.size() &&
            !std::equal(devices.begin(), devices.end(), before.begin(), is_same_device))
            devices.pop_back();
        before = devices;
        answer.add_counted(devices);
        return 0;
    }

    void forget(std::uint8_t client_id) { shown_.erase(client_id); }

private:
    const host& env_;
    std::map<std::uint8_t, std::vector<block_stat>> shown_;
};

void install(sampler_table& table, const host& env) {
    auto all = std::make_shared<block_devices>(env);
    table.on(peripheral_command, peripheral_request::block_devices,
             [all](const request& asked, reply& answer) {
                 return all->answer(asked.client_id, answer);
             });
    table.on_client_gone([all](std::uint8_t client_id) { all->forget(client_id); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
