// System-wide counting of hardware and kernel events.
#include "cpu_list.h"
#include "sampler.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <linux/perf_event.h>
#include <memory>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace monsrv {
namespace {

struct event {
    std::uint32_t type;
    std::uint64_t config;
};

constexpr std::uint32_t no_event = PERF_TYPE_MAX;

constexpr event hardware(std::uint64_t id) {
    return {PERF_TYPE_HARDWARE, id};
}
constexpr event software(std::uint64_t id) {
    return {PERF_TYPE_SOFTWARE, id};
}
constexpr event cache_reads(std::uint64_t cache, std::uint64_t result) {
    return {PERF_TYPE_HW_CACHE, cache | PERF_COUNT_HW_CACHE_OP_READ << 8 | result << 16};
}
// The kernel has no name of its own for these; only on Arm does one number mean the same event on
// every machine.
constexpr event arm_event([[maybe_unused]] std::uint64_t number) {
#if defined(__aarch64__)
    return {PERF_TYPE_RAW, number};
#else
    return {no_event, 0};
#endif
}

constexpr std::uint64_t misses = PERF_COUNT_HW_CACHE_RESULT_MISS;
constexpr std::uint64_t accesses = PERF_COUNT_HW_CACHE_RESULT_ACCESS;

// In the order of the fields of perf_counters.
constexpr event events[] = {
    hardware(PERF_COUNT_HW_CPU_CYCLES),
    software(PERF_COUNT_SW_CONTEXT_SWITCHES),
    hardware(PERF_COUNT_HW_INSTRUCTIONS),
    software(PERF_COUNT_SW_CPU_MIGRATIONS),
    software(PERF_COUNT_SW_PAGE_FAULTS),
    hardware(PERF_COUNT_HW_STALLED_CYCLES_FRONTEND),
    hardware(PERF_COUNT_HW_STALLED_CYCLES_BACKEND),
    cache_reads(PERF_COUNT_HW_CACHE_L1D, misses),
    cache_reads(PERF_COUNT_HW_CACHE_L1D, accesses),
    cache_reads(PERF_COUNT_HW_CACHE_L1I, misses),
    cache_reads(PERF_COUNT_HW_CACHE_L1I, accesses),
    arm_event(0x16), // level 2 accesses
    arm_event(0x17), // level 2 refills
    arm_event(0x2B), // level 3 accesses
    arm_event(0x2A), // level 3 refills
    cache_reads(PERF_COUNT_HW_CACHE_LL, misses),
    cache_reads(PERF_COUNT_HW_CACHE_LL, accesses),
    cache_reads(PERF_COUNT_HW_CACHE_ITLB, misses),
    cache_reads(PERF_COUNT_HW_CACHE_ITLB, accesses),
    cache_reads(PERF_COUNT_HW_CACHE_DTLB, misses),
    cache_reads(PERF_COUNT_HW_CACHE_DTLB, accesses),
    hardware(PERF_COUNT_HW_BRANCH_MISSES),
    hardware(PERF_COUNT_HW_BRANCH_INSTRUCTIONS),
};
constexpr std::size_t event_count = sizeof events / sizeof *events;
static_assert(event_count * sizeof(std::uint64_t) == sizeof(perf_counters));

// The fields of a perf_counters.
using totals = std::array<std::uint64_t, event_count>;

// Counts on one CPU from now on.
// Returns the descriptor or a negated errno.
int open_counter(const event& what, int cpu) {
    perf_event_attr attributes{};
    attributes.size = sizeof attributes;
    attributes.type = what.type;
    attributes.config = what.config;
    attributes.read_format = PERF_FORMAT_TOTAL_TIME_ENABLED | PERF_FORMAT_TOTAL_TIME_RUNNING;
    const long fd = syscall(SYS_perf_event_open, &attributes, -1, cpu, -1, PERF_FLAG_FD_CLOEXEC);
    return fd == -1 ? -errno : static_cast<int>(fd);
}

// A processor with fewer counters than events takes them in turns: each counts for its share of the
// time only, and its count is scaled to the whole time.
std::uint64_t read_counter(int fd) {
    struct {
        std::uint64_t value, enabled_ns, running_ns;
    } counted{};
    if (read(fd, &counted, sizeof counted) != sizeof counted || counted.running_ns == 0)
        return 0;
    if (counted.running_ns >= counted.enabled_ns)
        return counted.value;
    return static_cast<std::uint64_t>(static_cast<double>(counted.value) *
                                      static_cast<double>(counted.enabled_ns) /
                                      static_cast<double>(counted.running_ns));
}

// Large machines need more descriptors than a process may hold by default.
void allow_descriptors(std::size_t more) {
    constexpr std::size_t others = 512; // sockets, kept files
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == -1 || limit.rlim_cur >= more + others)
        return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, more + others);
    setrlimit(RLIMIT_NOFILE, &limit);
}

// One counter for each event and CPU; owns their descriptors.
class counter_set {
public:
    counter_set() = default;
    ~counter_set() { close_all(); }
    counter_set(const counter_set&) = delete;
    counter_set& operator=(const counter_set&) = delete;

    // Opens what the machine has.
    // Returns 0, or the negated errno of the first failure: if no counter could be opened, or if
    // some could not for want of resources, because their totals would then be too small without
    // notice.
    int open(const std::vector<int>& cpus) {
        allow_descriptors(cpus.size() * event_count);
        int first_failure = 0;
        for (const int cpu : cpus) {
            for (std::size_t i = 0; i < event_count; ++i) {
                if (events[i].type == no_event)
                    continue;
                const int fd = open_counter(events[i], cpu);
                if (fd >= 0)
                    counters_.push_back({i, fd});
                else if (first_failure == 0)
                    first_failure = fd;
                if (fd == -EMFILE || fd == -ENFILE || fd == -ENOMEM) {
                    close_all();
                    return fd;
                }
            }
        }
        return counters_.empty() ? (first_failure == 0 ? -ENODEV : first_failure) : 0;
    }

    bool is_open() const { return !counters_.empty(); }

    totals read_all() const {
        totals sums{};
        for (const counter& each : counters_)
            sums[each.event] += read_counter(each.fd);
        return sums;
    }

    void close_all() {
        for (const counter& each : counters_)
            close(each.fd);
        counters_.clear();
    }

private:
    struct counter {
        std::size_t event; // index in `events`
        int fd;
    };
    std::vector<counter> counters_;
};

// The counting of all clients: one set of counters, open while anybody wants it.
class performance_counters {
public:
    explicit performance_counters(const host& env) : env_(env) {}

    // Counting that is on already starts from 0 again for this client.
    int enable(std::uint8_t client_id) {
        if (!env_.is_live())
            return -ENOTSUP;
        if (!counters_.is_open()) {
            std::string online;
            if (const int error = env_.read("/sys/devices/system/cpu/online", online); error < 0)
                return error;
            if (const int error = counters_.open(read_cpu_list(online)); error < 0)
                return error;
        }
        starts_[client_id] = counters_.read_all();
        return 0;
    }

    int read(std::uint8_t client_id, reply& answer) const {
        if (!env_.is_live())
            return -ENOTSUP;
        const auto start = starts_.find(client_id);
        if (start == starts_.end())
            return -ENODATA;
        totals sums = counters_.read_all();
        for (std::size_t i = 0; i < event_count; ++i) // a scaled count may shrink
            sums[i] -= std::min(sums[i], start->second[i]);
        answer.add_record(sums);
        return 0;
    }

    int disable(std::uint8_t client_id) {
        starts_.erase(client_id);
        if (starts_.empty())
            counters_.close_all();
        return env_.is_live() ? 0 : -ENOTSUP;
    }

private:
    const host& env_;
    counter_set counters_;
    std::map<std::uint8_t, totals> starts_; // by client: the totals when it switched counting on
};

void install(sampler_table& table, const host& env) {
    auto counting = std::make_shared<performance_counters>(env);
    table.on(cpu_command, cpu_request::enable_counters, [counting](const request& asked, reply&) {
        return counting->enable(asked.client_id);
    });
    table.on(cpu_command, cpu_request::read_counters,
             [counting](const request& asked, reply& answer) {
                 return counting->read(asked.client_id, answer);
             });
    table.on(cpu_command, cpu_request::disable_counters, [counting](const request& asked, reply&) {
        return counting->disable(asked.client_id);
    });
    table.on_client_gone([counting](std::uint8_t id) { counting->disable(id); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
