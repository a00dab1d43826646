// Decoding with std::istringstream.
#include "stream_way.h"

#include <algorithm>
#include <sstream>

namespace {
std::unordered_map<std::string, long> figures(const std::string& text) {
    std::unordered_map<std::string, long> all;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string key;
        std::string value;
        std::getline(fields, key, ':');
        fields >> std::ws;
        std::getline(fields, value);
        all[key] = std::stol(value);
    }
    return all;
}

std::uint64_t figure(std::unordered_map<std::string, long>& all, const char* key) {
    return static_cast<std::uint64_t>(all[key]);
}
} // namespace

void stream_way::cpus(const std::string& text, cpus_stats_parser& parser) {
    parser.stats = std::make_unique<std::vector<std::shared_ptr<cpu_stat>>>();
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 3, "cpu") != 0)
            continue;
        auto s = std::make_shared<cpu_stat>();
        std::istringstream fields(line);
        fields >> s->cpu >> s->user >> s->nice >> s->system >> s->idle >> s->iowait >> s->irq >>
            s->softirq >> s->steal >> s->guest >> s->guest_nice;
        parser.stats->push_back(s);
    }
    if (parser.last_stats)
        for (std::size_t i = 0; i < std::min(parser.stats->size(), parser.last_stats->size()); ++i)
            parser.cal_cpu_usage((*parser.stats)[i], (*parser.last_stats)[i]);
    parser.last_stats = std::move(parser.stats);
}

void stream_way::interrupts(const std::string& text, interrupt_parser& parser) {
    parser.interrupts = std::make_unique<std::vector<std::shared_ptr<interrupt>>>();
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    const auto cpus = std::count(line.begin(), line.end(), 'C');
    while (std::getline(lines, line)) {
        const bool inter_processor = line.compare(0, 3, "IPI") == 0;
        const bool numbered = line.size() > 2 && line[2] >= '0' && line[2] <= '9';
        const bool error = line.compare(0, 3, "Err") == 0;
        if (!inter_processor && !numbered && !error)
            continue;
        auto record = std::make_shared<interrupt>();
        std::istringstream fields(line);
        std::string word;
        fields >> word;
        if (error) {
            fields >> record->err_cnt;
            parser.interrupts->push_back(record);
            continue;
        }
        if (inter_processor) {
            record->IPI_int_num = word;
        } else {
            word.pop_back();
            record->logic_int_num = std::stoul(word);
        }
        for (long i = 0; i < cpus; ++i) {
            std::uint64_t count = 0;
            fields >> count;
            record->int_cnt.push_back(count);
        }
        if (inter_processor) {
            std::getline(fields, record->IPI_int_describe);
        } else {
            fields >> record->int_dev >> record->hardware_int_num >> record->trigger_mode;
            std::getline(fields, record->int_name);
        }
        parser.interrupts->push_back(record);
    }
}

void stream_way::status(const std::string& text, process_stat& s) {
    std::istringstream fields(text);
    std::string comm;
    fields >> s.pid >> comm >> s.state >> s.ppid >> s.pgid >> s.session >> s.tty_nr >> s.tpgid >>
        s.flags >> s.minflt >> s.cminflt >> s.majflt >> s.cmajflt >> s.utime >> s.stime >>
        s.cutime >> s.cstime >> s.priority >> s.nice >> s.num_threads >> s.itrealvalue >>
        s.starttime >> s.vsize >> s.rss >> s.rsslim >> s.startcode >> s.endcode >> s.startstack >>
        s.kstkesp >> s.kstkeip >> s.signal >> s.blocked >> s.sigignore >> s.sigcatch >> s.wchan >>
        s.nswap >> s.cnswap >> s.exit_signal >> s.processor >> s.rt_priority >> s.policy >>
        s.delayacct_blkio_ticks;
    comm.copy(s.comm, sizeof s.comm - 1);
}

void stream_way::io(const std::string& text, process_io& record) {
    auto all = figures(text);
    record = {figure(all, "rchar"),
              figure(all, "wchar"),
              figure(all, "syscr"),
              figure(all, "syscw"),
              figure(all, "read_bytes"),
              figure(all, "write_bytes"),
              figure(all, "cancelled_write_bytes")};
}

void stream_way::memory(const std::string& text, meminfo& record) {
    auto all = figures(text);
    record = {figure(all, "MemTotal"),
              figure(all, "MemFree"),
              figure(all, "MemAvailable"),
              figure(all, "Buffers"),
              figure(all, "Cached"),
              figure(all, "Slab"),
              figure(all, "Active(file)") + figure(all, "Inactive(file)"),
              figure(all, "Active(anon)") + figure(all, "Inactive(anon)")};
}
