// moncl without a command: one screen that sums the machine up. What the server does not have is
// left out.
#include "cpu_stat_manager.h"
#include "net_stat_manager.h"
#include "nnu_ratio_manager.h"
#include "peri_stat_manager.h"
#include "sys_info_manager.h"
#include "vio_info_manager.h"

#include "peripherals.h"
#include "process_rows.h"
#include "recovery.h"
#include "session.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <map>
#include <sstream>

namespace tools {
namespace {

constexpr std::size_t processes_shown = 5;
constexpr int whole_table = 0; // what the process query takes in place of a process

/// The lines of one section; the first shows its name.
class section {
public:
    section(const char* name, std::ostream& out) : name_(name), out_(out) {}

    std::ostream& line() {
        out_ << (any_ ? "\n" : "") << std::left << std::setw(10) << name_ << std::right
             << std::fixed << std::setprecision(1);
        name_ = "";
        any_ = true;
        return out_;
    }
    ~section() {
        if (any_)
            out_ << "\n";
    }
    section(const section&) = delete;
    section& operator=(const section&) = delete;

private:
    const char* name_;
    std::ostream& out_;
    bool any_ = false;
};

/// A size as the library writes it.
struct size_of {
    std::uint64_t value;
    unsigned char unit = 0; // 0 bytes, 1 KB
};

std::ostream& operator<<(std::ostream& out, const size_of& size) {
    std::ostringstream text;
    show_by_unit(size.value, text, size.unit);
    return out << text.str();
}

/// Kilobytes a second, 0 where no time has passed or the counter was set back.
double kb_rate(std::uint64_t before, std::uint64_t now, double seconds) {
    return now > before && seconds > 0 ? static_cast<double>(now - before) / seconds : 0;
}

/// All queries of the screen.
class summary {
public:
    explicit summary(session& asking)
        : sysinfo_(asking.new_connection()), connection_(asking.new_connection()),
          cpu_(connection_) {
        peri_.client = connection_;
        net_.client = connection_;
        nnu_.client = connection_;
        vio_.client = connection_;
    }

    std::vector<std::shared_ptr<client_comm>> connections() const {
        return {sysinfo_.client, connection_};
    }

    /// Asks for everything, and writes the screen unless @p out is null.
    int report(std::ostream* out) {
        std::ostringstream screen;
        for (const auto part :
             {&summary::add_system, &summary::add_cpu, &summary::add_memory, &summary::add_disks,
              &summary::add_space, &summary::add_network, &summary::add_temperatures,
              &summary::add_accelerator, &summary::add_frame_rates, &summary::add_processes})
            if (const int code = (this->*part)(screen); code < 0)
                return code;
        if (out == nullptr)
            return 0;
        *out << (shown_ ? "\n" : "") << screen.str();
        shown_ = true;
        return 0;
    }

private:
    // Whether a query gave figures; if it did not because nobody answered, `code` tells so.
    static bool has(int result, client_comm& connection, int& code) {
        if (result < 0 && !answered(connection, result))
            code = result;
        return result >= 0;
    }

    int add_system(std::ostream& out) {
        int code = 0;
        section lines("system", out);
        if (has(sysinfo_.get_version(), *sysinfo_.client, code))
            lines.line() << sysinfo_.last_version();
        return code;
    }

    int add_cpu(std::ostream& out) {
        int code = 0;
        if (!has(cpu_.get_cpu_usage(nullptr), *connection_, code) || !cpu_.cpu_parser->last_stats ||
            cpu_.cpu_parser->last_stats->empty())
            return code;
        const auto& stats = *cpu_.cpu_parser->last_stats;
        const cpu_stat& all = *stats.front();
        if (!std::isfinite(all.cpu_usage))
            return code; // no time has passed
        section lines("cpu", out);
        lines.line() << all.cpu_usage << " % of " << stats.size() - 1 << " CPUs: user "
                     << all.user_ratio << ", system " << all.sys_ratio << ", waiting for I/O "
                     << all.iowait_ratio;
        return code;
    }

    int add_memory(std::ostream& out) {
        int code = 0;
        if (!has(peri_.get_meminfo(nullptr), *connection_, code))
            return code;
        const meminfo& mem = peri_.mem_parser->mem;
        section lines("memory", out);
        lines.line() << size_of{mem.memAvailable, 1} << " available of " << size_of{mem.memTotal, 1}
                     << ": processes " << size_of{mem.anon, 1} << ", files " << size_of{mem.file, 1}
                     << ", kernel objects " << size_of{mem.slab, 1};
        return code;
    }

    int add_disks(std::ostream& out) {
        int code = 0;
        timeval before = peri_.block_parser->last_time;
        if (!has(peri_.get_block_usage(nullptr), *connection_, code))
            return code;
        const block_stat_parser& parser = *peri_.block_parser;
        if (parser.last_stats == nullptr)
            return code;
        timeval now = parser.last_time;
        const double seconds = static_cast<double>(time_diff_us(before, now)) / 1e6;
        section lines("disk", out);
        for (int i = 0; i < parser.stats->num; ++i) {
            const block_stat& old = parser.last_stats->stat[i];
            const block_stat& disk = parser.stats->stat[i];
            if (disk.rd_kb == 0 && disk.wr_kb == 0) // never used, as most loop devices
                continue;
            lines.line() << std::left << std::setw(12) << field_text(disk.name) << std::right
                         << std::setw(10) << kb_rate(old.rd_kb, disk.rd_kb, seconds) << " KB/s read"
                         << std::setw(10) << kb_rate(old.wr_kb, disk.wr_kb, seconds)
                         << " KB/s written";
        }
        return code;
    }

    int add_space(std::ostream& out) {
        int code = 0;
        std::vector<const char*> all;
        if (!has(peri_.get_partition_info(all, nullptr), *connection_, code))
            return code;
        section lines("space", out);
        for (const part_info& part : peri_.part_parser->part_vec)
            lines.line() << std::left << std::setw(12) << field_text(part.part_name) << std::right
                         << size_of{part.f_bavail * part.f_frsize} << " available of "
                         << size_of{part.f_blocks * part.f_frsize};
        return code;
    }

    int add_network(std::ostream& out) {
        int code = 0;
        if (!has(net_.get_bandwidth_stat(nullptr), *connection_, code))
            return code;
        section lines("network", out);
        const auto& devices = net_.parser->dev_result;
        for (int i = 0; i < static_cast<int>(devices.size()); ++i) {
            const net_stat& device = devices.at(i);
            if (device.total > 0)
                lines.line() << std::left << std::setw(12) << field_text(device.dev_name)
                             << std::right << std::setw(10) << device.rate / 1024 << " KB/s";
        }
        return code;
    }

    int add_temperatures(std::ostream& out) {
        int code = 0;
        if (!has(peri_.get_all_thermal(nullptr), *connection_, code))
            return code;
        std::ostringstream known;
        known << std::fixed << std::setprecision(1);
        for (const std::uint64_t temp : peri_.all_th_parser->all_th)
            if (is_known(temp, unknown_temperature))
                known << static_cast<double>(static_cast<std::int64_t>(temp)) / 1000 << " ";
        section lines("thermal", out);
        if (!known.str().empty())
            lines.line() << known.str() << "degrees Celsius";
        return code;
    }

    int add_accelerator(std::ostream& out) {
        int code = 0;
        section lines("nnu", out);
        for (const auto query :
             {&nnu_ratio_manager::get_nnu0_ratio, &nnu_ratio_manager::get_nnu1_ratio})
            if (has((nnu_.*query)(nullptr), *connection_, code))
                lines.line() << nnu_.nnu_parser->name << std::setw(8) << nnu_.nnu_parser->nnu_rat
                             << " %";
        return code;
    }

    // What comes out of the camera interface, pipe by pipe: what all other blocks work on.
    int add_frame_rates(std::ostream& out) {
        int code = 0;
        if (!has(vio_.get_cim_fps(), *connection_, code))
            return code;
        const fps_map& fps = vio_.cim_parse->fps;
        const std::map<std::uint16_t, std::shared_ptr<pipe_fps>> by_pipe(fps.begin(), fps.end());
        section lines("camera", out);
        for (const auto& [pipe, rates] : by_pipe)
            lines.line() << "pipe " << std::left << std::setw(7) << pipe << std::right
                         << std::setw(4) << rates->input_fps << " frames/s in" << std::setw(6)
                         << rates->output_fps << " out";
        return code;
    }

    int add_processes(std::ostream& out) {
        int code = 0;
        if (!has(cpu_.get_process_all(whole_table, nullptr), *connection_, code))
            return code;
        std::vector<pid_msg> rows = sorted_rows(*cpu_.process_parser->pid_info);
        rows.resize(std::min(rows.size(), processes_shown));
        section lines("processes", out);
        for (const pid_msg& row : rows)
            lines.line() << std::setw(8) << row.pid << "  " << std::left << std::setw(16)
                         << printable_name(row) << std::right << std::setw(7) << row.process_usage
                         << " % CPU" << std::setw(10) << size_of{resident_bytes(row)};
        return code;
    }

    sysinfo_manager sysinfo_;
    std::shared_ptr<client_comm> connection_;
    cpu_stat_manager cpu_;
    peri_stat_manager peri_;
    net_stat_manager net_;
    nnu_ratio_manager nnu_;
    vio_info_manager vio_;
    bool shown_ = false; // a screen stands above the next
};

command_action configure(CLI::App& app) {
    return [when = add_schedule(app)](session& asking) {
        summary all(asking);
        return asking.repeat(*when, {[&all](std::ostream* out) { return all.report(out); },
                                     all.connections(), true});
    };
}

const command_registration registered("summary", "The machine on one screen, as without a command",
                                      configure);

} // namespace
} // namespace tools
