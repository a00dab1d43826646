// Per-process answers: status line, I/O accounting and the table of busiest processes.
#include "perf_stat.h"
#include "process.h"

#include "text_number.h"

#include <cstring>
#include <exception>
#include <iostream>

namespace {
void read_status(std::string_view text, process_stat& s) {
    text_reader fields(text);
    fields.number(s.pid);
    std::string_view comm;
    fields.word(comm);
    comm.copy(s.comm, sizeof s.comm - 1);
    fields.character(s.state);
    fields.number(s.ppid);
    fields.number(s.pgid);
    fields.number(s.session);
    fields.number(s.tty_nr);
    fields.number(s.tpgid);
    fields.number(s.flags);
    fields.number(s.minflt);
    fields.number(s.cminflt);
    fields.number(s.majflt);
    fields.number(s.cmajflt);
    fields.number(s.utime);
    fields.number(s.stime);
    fields.number(s.cutime);
    fields.number(s.cstime);
    fields.number(s.priority);
    fields.number(s.nice);
    fields.number(s.num_threads);
    fields.number(s.itrealvalue);
    fields.number(s.starttime);
    fields.number(s.vsize);
    fields.number(s.rss);
    fields.number(s.rsslim);
    fields.number(s.startcode);
    fields.number(s.endcode);
    fields.number(s.startstack);
    fields.number(s.kstkesp);
    fields.number(s.kstkeip);
    fields.number(s.signal);
    fields.number(s.blocked);
    fields.number(s.sigignore);
    fields.number(s.sigcatch);
    fields.number(s.wchan);
    fields.number(s.nswap);
    fields.number(s.cnswap);
    fields.number(s.exit_signal);
    fields.number(s.processor);
    fields.number(s.rt_priority);
    fields.number(s.policy);
    fields.number(s.delayacct_blkio_ticks);
}

struct io_field {
    std::string_view key;
    std::uint64_t process_io::*value;
};

constexpr io_field io_fields[] = {
    {"rchar", &process_io::rchar},
    {"wchar", &process_io::wchar},
    {"syscr", &process_io::syscr},
    {"syscw", &process_io::syscw},
    {"read_bytes", &process_io::read_bytes},
    {"write_bytes", &process_io::write_bytes},
    {"cancelled_write_bytes", &process_io::cancelled_write_bytes},
};
} // namespace

process_stat_parser::process_stat_parser(int watched, int cpus) : pid(watched), cpus_num(cpus) {}

unsigned int process_stat_parser::parse_process_stat(unsigned char* msg, unsigned int ticks) {
    try {
        auto sample = std::make_unique<process_stat>();
        read_status(payload_text(msg), *sample);
        cal_process_usage(sample.get(), ticks);
        state = sample->state;
        priority = sample->priority;
        rss = static_cast<std::uint64_t>(sample->rss);
        processor = sample->processor;
        last_process_stat = std::move(sample);
        return 1;
    } catch (const std::exception& e) {
        std::cout << "parse_process_stat failed:" << e.what() << std::endl;
        return 0;
    }
}

void process_stat_parser::cal_process_usage(process_stat* cur, unsigned int ticks) {
    if (!last_process_stat || ticks == 0)
        return;
    // A 32-bit difference that wraps, as the run times themselves do.
    const auto run = static_cast<std::int32_t>(
        static_cast<std::uint32_t>(process_run_time(cur)) -
        static_cast<std::uint32_t>(process_run_time(last_process_stat.get())));
    process_usage = static_cast<double>(run) / static_cast<double>(ticks) * 100.0 *
                    static_cast<double>(cpus_num);
}

int process_stat_parser::process_run_time(process_stat* ps) {
    return static_cast<int>(ps->utime + ps->stime);
}

process_io_parser::process_io_parser(int watched) : pid(watched) {}

int process_io_parser::parse_process_io(unsigned char* msg, unsigned int elapsed_ms) {
    try {
        auto sample = std::make_unique<process_io>();
        for_each_figure(payload_text(msg), [&](std::string_view key, long value) {
            for (const io_field& field : io_fields)
                if (field.key == key)
                    (*sample).*field.value = static_cast<std::uint64_t>(value);
        });
        cal_process_io_usage(sample.get(), elapsed_ms);
        last_pio = std::move(sample);
        return 1;
    } catch (const std::exception& e) {
        std::cout << "parse_process_io failed:" << e.what() << std::endl;
        return 0;
    }
}

std::unordered_map<std::string, long>
process_io_parser::parse_process_io_file(const std::string& text) {
    std::unordered_map<std::string, long> values;
    for_each_figure(text,
                    [&](std::string_view key, long value) { values[std::string(key)] = value; });
    return values;
}

void process_io_parser::cal_process_io_usage(process_io* cur, unsigned int elapsed_ms) {
    const auto seconds = static_cast<std::int32_t>(elapsed_ms / 1000);
    if (!last_pio || seconds == 0)
        return;
    auto kib_per_second = [seconds](std::uint64_t bytes) {
        return static_cast<double>(bytes) / static_cast<double>(seconds) * (1.0 / 1024);
    };
    rd_per_second = kib_per_second(cur->read_bytes - last_pio->read_bytes);
    wr_per_second = kib_per_second(cur->write_bytes - last_pio->write_bytes);
}

void process_all_parser::parse_process_all(unsigned char* msg) {
    pid_info = reinterpret_cast<top_pid_info*>(msg);
}

int perf_stat_parser::parse_perf_stat(unsigned char* msg) {
    counters = reinterpret_cast<perf_counters*>(msg);
    return 1;
}
