// Bytes carried by each network device and by each process that a client registered.
//
// Every client has a set of its own. Devices are always answered; processes only from start to
// exit, so that a client that went through neither costs no walk over all sockets. Exit forgets the
// set, and so does a client that gives its id back. Clients without an id share one set.
#include "sampler.h"

#include "tcp_sockets.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sstream>
#include <unistd.h>
#include <unordered_map>

namespace monsrv {
namespace {

constexpr std::size_t most_processes = 256; // of one client
constexpr std::size_t device_name_size = 16;
constexpr std::size_t device_record_size = device_name_size + 8;
// Most of a client's patience stays for everybody else, however many sockets there are.
constexpr std::chrono::milliseconds patience{300};

using clock_type = std::chrono::steady_clock;
using sockets_by_inode = std::unordered_map<std::uint32_t, const tcp_socket*>;

struct device {
    std::string name;
    std::uint64_t bytes; // received and sent
};

std::vector<device> read_devices(const std::string& text) {
    std::vector<device> devices;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(':');
        if (colon == line.npos)
            continue; // headings
        device d;
        std::istringstream(line.substr(0, colon)) >> d.name;
        std::istringstream figures(line.substr(colon + 1));
        std::uint64_t received = 0;
        std::uint64_t sent = 0;
        figures >> received;
        for (int i = 0; i < 7; ++i)
            figures >> sent; // packets and kinds of errors
        if (!(figures >> sent))
            continue;
        d.bytes = received + sent;
        devices.push_back(d);
    }
    return devices;
}

struct free_directory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// The inodes of a process's sockets, in `inodes`.
// Returns whether they are all there; a process that cannot be looked into has none.
bool list_socket_inodes(const std::string& folder, clock_type::time_point deadline,
                        std::vector<std::uint32_t>& inodes) {
    const std::unique_ptr<DIR, free_directory> directory(opendir(folder.c_str()));
    if (!directory)
        return true;
    constexpr std::string_view prefix = "socket:[";
    while (const dirent* each = readdir(directory.get())) {
        char link[64];
        const ssize_t n = readlinkat(dirfd(directory.get()), each->d_name, link, sizeof link - 1);
        if (n > 0 && std::string_view(link, static_cast<std::size_t>(n)).rfind(prefix, 0) == 0) {
            link[n] = '\0';
            inodes.push_back(
                static_cast<std::uint32_t>(std::strtoul(link + prefix.size(), nullptr, 10)));
        }
        if (clock_type::now() > deadline)
            return false;
    }
    return true;
}

/// What one process has carried, as far as it was seen.
class process_bytes {
public:
    /// Takes in the process's sockets.
    /// @param all whether they are all of them; then the others it had are closed, and their bytes
    ///            stay in the total
    void update(const std::vector<std::uint32_t>& inodes, const sockets_by_inode& sockets,
                bool all) {
        std::unordered_map<std::uint64_t, std::uint64_t> now;
        for (const std::uint32_t inode : inodes)
            if (const auto found = sockets.find(inode); found != sockets.end())
                now[found->second->cookie] = found->second->bytes;
        for (const auto& [cookie, bytes] : open_) {
            if (now.count(cookie) != 0)
                now[cookie] = std::max(now[cookie], bytes);
            else if (all)
                closed_ += bytes;
            else
                now[cookie] = bytes;
        }
        open_ = std::move(now);
    }

    std::uint64_t total() const {
        std::uint64_t sum = closed_;
        for (const auto& each : open_)
            sum += each.second;
        return sum;
    }

private:
    std::unordered_map<std::uint64_t, std::uint64_t> open_; // by socket cookie
    std::uint64_t closed_ = 0;
};

/// The registered set of one client.
struct registered_set {
    bool started = false;
    std::map<std::int32_t, process_bytes> processes;
};

class network {
public:
    explicit network(const host& env) : env_(env) {}

    int add(const request& asked) {
        const std::int32_t pid = asked.number();
        if (pid <= 0)
            return -EINVAL;
        auto& processes = clients_[asked.client_id].processes;
        if (processes.size() >= most_processes && processes.count(pid) == 0)
            return -ENOSPC;
        processes.try_emplace(pid);
        return 0;
    }

    int remove(const request& asked) {
        clients_[asked.client_id].processes.erase(asked.number());
        return 0;
    }

    int start(const request& asked) {
        clients_[asked.client_id].started = true;
        return 0;
    }

    void forget(std::uint8_t client_id) { clients_.erase(client_id); }

    int bandwidth(const request& asked, reply& answer) {
        std::string text;
        if (const int error = env_.read("/proc/net/dev", text); error < 0)
            return error;
        std::vector<process_net_s> processes = sample_processes(clients_[asked.client_id]);
        std::vector<device> devices = read_devices(text);
        const std::size_t taken = 8 + processes.size() * sizeof(process_net_s);
        devices.resize(std::min(devices.size(), (answer_payload_max - taken) / device_record_size));
        add_count(devices.size(), answer);
        for (const device& each : devices) {
            unsigned char record[device_record_size] = {};
            each.name.copy(reinterpret_cast<char*>(record), device_name_size - 1);
            u64_to_u8(each.bytes, record + device_name_size); // big-endian, unlike all else here
            answer.add_record(record);
        }
        add_count(processes.size(), answer);
        for (const process_net_s& each : processes)
            answer.add_record(each);
        return 0;
    }

private:
    static void add_count(std::size_t count, reply& answer) {
        unsigned char bytes[4];
        u32_to_u8(static_cast<unsigned>(count), bytes);
        answer.add_record(bytes);
    }

    std::vector<process_net_s> sample_processes(registered_set& set) const {
        std::vector<process_net_s> records;
        if (!set.started)
            return records;
        if (env_.is_live() && !set.processes.empty())
            look_at_sockets(set);
        for (const auto& [pid, bytes] : set.processes) {
            process_net_s record;
            std::memset(&record, 0, sizeof record); // padding goes over the wire, too
            record.pid = pid;
            record.total = bytes.total();
            records.push_back(record);
        }
        return records;
    }

    // Descriptors before sockets: one opened in between is seen next time, with all its bytes.
    void look_at_sockets(registered_set& set) const {
        const clock_type::time_point deadline = clock_type::now() + patience;
        std::map<std::int32_t, std::vector<std::uint32_t>> inodes;
        bool all = true;
        for (const auto& each : set.processes)
            all = list_socket_inodes(env_.path("/proc/" + std::to_string(each.first) + "/fd"),
                                     deadline, inodes[each.first]) &&
                  all;
        std::vector<tcp_socket> sockets;
        all = list_tcp_sockets(deadline, sockets) == 0 && all;
        sockets_by_inode by_inode;
        for (const tcp_socket& socket : sockets)
            by_inode[socket.inode] = &socket;
        for (auto& [pid, bytes] : set.processes)
            bytes.update(inodes[pid], by_inode, all);
    }

    const host& env_;
    std::map<std::uint8_t, registered_set> clients_;
};

void install(sampler_table& table, const host& env) {
    auto all = std::make_shared<network>(env);
    table.on(network_command, network_request::add_process,
             [all](const request& asked, reply&) { return all->add(asked); });
    table.on(network_command, network_request::remove_process,
             [all](const request& asked, reply&) { return all->remove(asked); });
    table.on(network_command, network_request::start,
             [all](const request& asked, reply&) { return all->start(asked); });
    table.on(network_command, network_request::bandwidth,
             [all](const request& asked, reply& answer) { return all->bandwidth(asked, answer); });
    table.on(network_command, network_request::exit, [all](const request& asked, reply&) {
        all->forget(asked.client_id);
        return 0;
    });
    table.on_client_gone([all](std::uint8_t client_id) { all->forget(client_id); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
