// Bytes carried by each network device and by each process that a client registered.
//
// Every client has a set of its own. Devices are always answered; processes only from start to
// exit, so that a client that went through neither costs no walk over all sockets. Exit forgets the
// set, and so does a client that gives its id back. Clients without an id share one set.
#include "platform_log.h"
#include "process_files.h"
#include "process_network.h"
#include "sampler.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sstream>

namespace monsrv {
namespace {

constexpr std::size_t most_processes = 256; // of one client
constexpr std::size_t device_name_size = 16;
constexpr std::size_t device_record_size = device_name_size + 8;
// However many sockets there are, counting them takes at most this part of the time that clients
// wait.
constexpr std::chrono::milliseconds patience{300};

using clock_type = std::chrono::steady_clock;

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

// Opens the folder of a process's descriptors, or returns a negated errno.
int open_descriptors(const process_folder& process) {
    if (process.number() < 0)
        return process.number();
    const int folder = openat(process.number(), "fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return folder == -1 ? -errno : folder;
}

/// One registered process. It is the process that had the id when it was registered. After it has
/// ended its total stays, and another process that gets the same id is not counted.
class watched_process {
public:
    watched_process(const host& env, std::int32_t pid) : env_(env), pid_(pid) {
        error_ = look_up(process_folder(env_, pid_), start_ticks_);
    }

    /// Whether the process is there and may be looked into.
    /// @return 0, or a negated errno: -ESRCH once it has ended, -EACCES
    int check() const {
        std::vector<std::uint32_t> inodes;
        const auto no_time = clock_type::now(); // one descriptor shows whether all may be read
        const int error =
            error_ == -ESRCH ? -ESRCH : list(process_folder(env_, pid_), no_time, inodes);
        return error == -ETIMEDOUT ? 0 : error;
    }

    /// Lists the process's sockets, for `update` to count.
    void look(clock_type::time_point deadline) {
        inodes_.clear();
        if (error_ != -ESRCH)
            set_error(list(process_folder(env_, pid_), deadline, inodes_));
    }
    /// Counts what the latest `look` found. Without that, nothing changes.
    void update(const std::vector<tcp_socket>& sockets) {
        traffic_.update(inodes_, error_ == 0 || error_ == -ESRCH, sockets);
    }

    std::uint64_t total() const { return traffic_.total(); }

private:
    static int look_up(const process_folder& process, std::uint64_t& start_ticks) {
        std::string text;
        if (const int error = process.read_stat(text); error < 0)
            return error;
        process_status status;
        if (!parse_process_stat(text, status))
            return -EIO;
        start_ticks = status.start_ticks;
        return 0;
    }

    int list(const process_folder& process, clock_type::time_point deadline,
             std::vector<std::uint32_t>& inodes) const {
        std::uint64_t start_ticks = 0;
        if (const int error = look_up(process, start_ticks); error < 0)
            return error;
        if (start_ticks != start_ticks_)
            return -ESRCH;
        return list_socket_inodes(open_descriptors(process), deadline, inodes);
    }

    void set_error(int error) {
        if (error != error_ && error < 0 && error != -ESRCH)
            __android_log_print(ANDROID_LOG_ERROR, "MONSRV",
                                "sockets of process %d cannot be read, its bytes stay: %s\n", pid_,
                                std::strerror(-error));
        error_ = error;
    }

    const host& env_;
    std::int32_t pid_;
    std::uint64_t start_ticks_ = 0;
    int error_ = 0; // of the latest look; -ESRCH stays
    std::vector<std::uint32_t> inodes_;
    process_traffic traffic_;
};

/// The registered set of one client.
struct registered_set {
    bool started = false;
    std::map<std::int32_t, watched_process> processes;
};

class network {
public:
    explicit network(const host& env) : env_(env) {}

    int add(const request& asked) {
        const std::int32_t pid = asked.number();
        if (pid <= 0)
            return -EINVAL;
        auto& processes = clients_[asked.client_id].processes;
        if (const auto known = processes.find(pid); known != processes.end())
            return known->second.check();
        if (processes.size() >= most_processes)
            return -ENOSPC;
        if (!env_.is_live()) // a tree of files has no sockets
            return process_folder(env_, pid).number() < 0 ? -ESRCH : -ENOTSUP;
        watched_process process(env_, pid);
        int error = process.check();
        if (error == 0)
            error = check_sockets();
        if (error == 0)
            processes.emplace(pid, std::move(process));
        return error;
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

    std::vector<process_net_s> sample_processes(registered_set& set) {
        std::vector<process_net_s> records;
        if (!set.started)
            return records;
        if (!set.processes.empty())
            look_at_sockets(set);
        for (const auto& [pid, process] : set.processes) {
            process_net_s record;
            std::memset(&record, 0, sizeof record); // padding goes over the wire, too
            record.pid = pid;
            record.total = process.total();
            records.push_back(record);
        }
        return records;
    }

    // A kernel may be built without the means to list sockets.
    int check_sockets() {
        if (can_list_sockets_)
            return 0;
        std::vector<tcp_socket> sockets;
        const int error = list_tcp_sockets(clock_type::now() + patience, sockets);
        can_list_sockets_ = error == 0 || error == -ETIMEDOUT;
        if (can_list_sockets_)
            return 0;
        return error == -ENOENT || error == -EPROTONOSUPPORT ? -ENOTSUP : error;
    }

    // Lists descriptors before sockets: a socket opened in between is seen next time, with all its
    // bytes.
    void look_at_sockets(registered_set& set) {
        const clock_type::time_point deadline = clock_type::now() + patience;
        for (auto& each : set.processes)
            each.second.look(deadline);
        std::vector<tcp_socket> sockets;
        const int error = list_tcp_sockets(deadline, sockets);
        if (error != list_error_ && error < 0)
            __android_log_print(ANDROID_LOG_ERROR, "MONSRV",
                                "TCP sockets cannot be listed, bytes of processes stay: %s\n",
                                std::strerror(-error));
        list_error_ = error;
        if (error < 0)
            return;
        for (auto& each : set.processes)
            each.second.update(sockets);
    }

    const host& env_;
    std::map<std::uint8_t, registered_set> clients_;
    bool can_list_sockets_ = false;
    int list_error_ = 0; // of the latest list
};

void install(sampler_table& table, const host& env) {
    auto all = std::make_shared<network>(env);
    const std::size_t thread = table.add_slow_thread();
    table.on_slow(thread, network_command, network_request::add_process,
                  [all](const request& asked, reply&) { return all->add(asked); });
    table.on_slow(thread, network_command, network_request::remove_process,
                  [all](const request& asked, reply&) { return all->remove(asked); });
    table.on_slow(thread, network_command, network_request::start,
                  [all](const request& asked, reply&) { return all->start(asked); });
    table.on_slow(
        thread, network_command, network_request::bandwidth,
        [all](const request& asked, reply& answer) { return all->bandwidth(asked, answer); });
    table.on_slow(thread, network_command, network_request::exit,
                  [all](const request& asked, reply&) {
                      all->forget(asked.client_id);
                      return 0;
                  });
    table.on_client_gone([all](std::uint8_t client_id) { all->forget(client_id); }, thread);
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
