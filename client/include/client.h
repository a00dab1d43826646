// Every parser and its records: what the answers of the server decode into.
//
// A parser keeps the records of its last decode, and where a figure needs two samples the one
// before. None has a lock: a parser is used under the request lock of the manager that owns it. A
// routine that takes `unsigned char*` is given an answer's payload, text up to its first NUL or
// records of fixed layout; it keeps no pointer into it unless it says so.
#ifndef MONCL_CLIENT_H
#define MONCL_CLIENT_H

#include "common_func.h"
#include "mon_cpu.h"
#include "mon_peri.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// --------------------------------------------------------------------------- system information

/// Frequency of one CPU.
struct cpu_freq {
    std::uint64_t cpu_frequency = 0; ///< as the server's text gives it, not converted
};

/// Decodes the frequency of one CPU: text, one decimal number.
class MONCL_API cpu_freq_parser {
public:
    /// Decodes @p payload into a new `cpu_f`.
    /// @return 0; -1 after an exception
    /// @throws std::logic_error if @p payload is null
    int parse_cpu_freq(unsigned char* payload);
    /// Decodes @p text into `cpu_f`; the last line that holds anything wins.
    /// @return 0; -1 after an exception, which has been logged
    int parse_cpu_freq_msg(const std::string& text);

    std::shared_ptr<cpu_freq> cpu_f = std::make_shared<cpu_freq>(); ///< last decode, never null
};

/// Decodes the range of possible CPUs: text such as "0-7". The first number is taken to have one
/// digit; a text without a second number keeps the previous count and adds 1.
class MONCL_API cpu_possible_parser {
public:
    /// Decodes @p payload into `cpu_num`.
    /// @return 0; -1 after an exception
    /// @throws std::logic_error if @p payload is null
    int parse_cpu_possible(unsigned char* payload);
    /// Decodes @p text into `cpu_num`.
    /// @return 0; -1 after an exception, which has been logged
    int parse_cpu_possible_msg(const std::string& text);

    int cpu_num = 0; ///< number of possible CPUs, last decode
};

/// System version.
struct sys_version {
    std::string version; ///< one word
};

/// Decodes the system version: text, of which the first word of the last line counts.
class MONCL_API version_parser {
public:
    /// Decodes @p payload into a new `ver`.
    /// @return 1; 0 after an exception
    /// @throws std::logic_error if @p payload is null
    int parse_version(unsigned char* payload);
    /// Decodes @p text into `ver`.
    /// @return 1; 0 after an exception, which has been logged
    int parse_version_msg(const std::string& text);

    std::shared_ptr<sys_version> ver = std::make_shared<sys_version>(); ///< last decode, never null
};

// ------------------------------------------------------------------------------------ CPU usage

/// One CPU's times, in the server's clock ticks, and its shares of the time since the previous
/// sample, in percent.
class cpu_stat {
public:
    // Not defaulted: std::make_shared would clear the record twice.
    cpu_stat() noexcept {}

    std::string cpu; ///< "cpu" for all CPUs together, "cpu0", "cpu1" ... for single ones
    std::uint64_t user = 0;
    std::uint64_t nice = 0;
    std::uint64_t system = 0;
    std::uint64_t idle = 0;
    std::uint64_t iowait = 0;
    std::uint64_t irq = 0;
    std::uint64_t softirq = 0;
    std::uint64_t steal = 0;
    std::uint64_t guest = 0;
    std::uint64_t guest_nice = 0;
    std::uint64_t total_delta = 0; ///< growth of the sum of `user` to `steal`
    double cpu_usage = 0;          ///< everything but idle; NaN if no time passed, like the others
    double iowait_ratio = 0;
    double sys_ratio = 0;
    double user_ratio = 0;
    double irq_ratio = 0;
    double sirq_ratio = 0;
};

/// Decodes the CPU-time table, the text of /proc/stat, and computes usages against the previous
/// sample.
class MONCL_API cpus_stats_parser {
public:
    /// Decodes @p msg; `last_stats` becomes the new sample.
    /// @return 1; 0 if decoding failed, which leaves `last_stats` alone
    int parse_cpu_stats(unsigned char* msg);
    /// Appends a record for each "cpu" line of @p text to `stats`, which must not be null, and
    /// computes the usages of those that `last_stats` has a record for at the same position.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_sys_stat(const std::string& text);
    /// Fills @p cur's `total_delta` and percentages. A counter that runs backwards gives a huge
    /// `cpu_usage` or `iowait_ratio`, but a negative share of the others.
    void cal_cpu_usage(std::shared_ptr<cpu_stat> cur, std::shared_ptr<cpu_stat> prev);
    /// Writes one row of the usage report, without its line end. Leaves @p os left-adjusted, fixed,
    /// at precision 2.
    void show_all_times(std::shared_ptr<cpu_stat> stat, std::ostream& os);

    /// The latest sample, in the order of its lines; null before the first.
    std::unique_ptr<std::vector<std::shared_ptr<cpu_stat>>> last_stats;
    /// The sample being decoded; null between calls.
    std::unique_ptr<std::vector<std::shared_ptr<cpu_stat>>> stats;

private:
    int take_sample(std::string_view text);
};

// ----------------------------------------------------------------------------------- interrupts

/// One line of the interrupt table.
class interrupt {
public:
    // Not defaulted: std::make_shared would clear the record twice.
    interrupt() noexcept {}

    std::uint64_t logic_int_num = 0;    ///< number of a numbered line
    std::uint64_t hardware_int_num = 0; ///< the controller's own number
    std::string int_name;               ///< rest of a numbered line, leading blanks kept
    std::string int_dev;                ///< interrupt controller
    std::vector<std::uint64_t> int_cnt; ///< one count per CPU
    std::string trigger_mode;           ///< such as "Level" or "Edge"
    std::string IPI_int_num;            ///< first word of an inter-processor line, with its colon
    std::string IPI_int_describe;       ///< rest of an inter-processor line, leading blanks kept
    std::uint64_t err_cnt = 0;          ///< count of the error line
};

/// Decodes the interrupt table, the text of /proc/interrupts, and prints it to standard output.
class MONCL_API interrupt_parser {
public:
    /// Decodes @p msg, text of at most 409600 bytes, and prints the table to standard output, in
    /// the alignment that stream is set to; also if decoding failed.
    /// @return what `parse_int` returned
    unsigned int parse_interrupt(unsigned char* msg);
    /// Appends a record for each line of @p text to `interrupts`, which must not be null. Each
    /// numbered or inter-processor record gets one count per CPU heading, 0 where the line has
    /// none.
    /// @return 1; 0 after an exception, which has been written to standard output; the records
    ///         before it stay. A table of more than 409600 counts is such an exception
    int parse_int(const std::string& text);

    /// Records of the latest table, in the order of its lines; null before the first.
    std::unique_ptr<std::vector<std::shared_ptr<interrupt>>> interrupts;

private:
    int take_table(std::string_view text);
    void show_table() const;
};

// ------------------------------------------------------------------------- performance counting

/// Keeps the state of system-wide performance counting and a view of the latest counters.
class MONCL_API perf_stat_parser {
public:
    /// Points `counters` at @p msg; copies nothing.
    /// @return 1
    int parse_perf_stat(unsigned char* msg);

    std::int64_t during_ms = -1; ///< from the answer before to the latest counters; -1 before any
    bool enabled = false;        ///< counting is on, as the server last acknowledged
    timeval timestamp{};         ///< receipt of the latest answer
    /// The latest counters, in the connection's receive buffer: valid until that connection
    /// receives again; null before the first.
    perf_counters* counters = nullptr;
};

// ------------------------------------------------------------------------------------ processes

/// Decodes one process's status line, the text of /proc/PID/stat, and computes its CPU usage.
class MONCL_API process_stat_parser {
public:
    /// @param pid      process to watch
    /// @param cpus_num the manager's CPU count, which its `ticks` are a multiple of
    process_stat_parser(int pid, int cpus_num);

    /// Decodes @p msg, which becomes the previous sample of the next call.
    /// @param ticks CPU count times elapsed time, in 1/100 s; 0 for the first sample
    /// @return 1; 0 after an exception, which has been written to standard output
    unsigned int parse_process_stat(unsigned char* msg, unsigned int ticks);
    /// Sets `process_usage` from @p cur and the previous sample; without one, or with @p ticks 0,
    /// it stays.
    void cal_process_usage(process_stat* cur, unsigned int ticks);
    /// User and system time of @p ps, in clock ticks, cut to 32 bits.
    int process_run_time(process_stat* ps);

    pid_t pid;
    std::int32_t processor = 0; ///< CPU last run on
    char state = 0;             ///< state letter
    double process_usage = 0;   ///< percent of one CPU
    std::uint64_t rss = 0;      ///< resident pages
    std::int64_t priority = 0;  ///< kernel priority
    timeval last_time{};        ///< receipt of the previous answer
    std::int32_t cpus_num;
    std::unique_ptr<process_stat> last_process_stat; ///< previous sample; null before the first
};

/// Decodes one process's I/O accounting, the text of /proc/PID/io, and computes its rates.
class MONCL_API process_io_parser {
public:
    /// @param pid process to watch
    explicit process_io_parser(int pid);

    /// Decodes @p msg, which becomes the previous sample of the next call.
    /// @param elapsed_ms time since the previous answer; 0 for the first
    /// @return 1; 0 after an exception, which has been written to standard output and leaves all as
    ///         it was
    int parse_process_io(unsigned char* msg, unsigned int elapsed_ms);
    /// The figures of @p text by key.
    /// @throws std::invalid_argument, std::out_of_range "stol" on a value that is no number, too
    /// large
    std::unordered_map<std::string, long> parse_process_io_file(const std::string& text);
    /// Sets the rates from @p cur and the previous sample; without one, or within the first second
    /// after it, they stay.
    void cal_process_io_usage(process_io* cur, unsigned int elapsed_ms);

    pid_t pid;
    double rd_per_second = 0;             ///< KiB/s read from storage, over whole seconds
    double wr_per_second = 0;             ///< KiB/s written to storage, over whole seconds
    timeval last_time{};                  ///< receipt of the previous answer
    std::unique_ptr<process_io> last_pio; ///< previous sample; null before the first
};

/// Gives access to the server's table of busiest processes.
class MONCL_API process_all_parser {
public:
    /// Points `pid_info` at @p msg; copies nothing.
    void parse_process_all(unsigned char* msg);

    std::int32_t pid = 0; ///< value sent with the request
    /// The latest table, in the connection's receive buffer: valid until that connection receives
    /// again; null before the first.
    top_pid_info* pid_info = nullptr;
};

// --------------------------------------------------------------------------------------- memory

/// Memory figures, in kB.
struct meminfo {
    std::uint64_t memTotal = 0;
    std::uint64_t memfree = 0;
    std::uint64_t memAvailable = 0;
    std::uint64_t buffer = 0;
    std::uint64_t cached = 0;
    std::uint64_t slab = 0;
    std::uint64_t file = 0; ///< file-backed pages, active and inactive
    std::uint64_t anon = 0; ///< anonymous pages, active and inactive
};

/// Decodes the text of /proc/meminfo.
class MONCL_API meminfo_parser {
public:
    /// Decodes @p msg into `mem`; a figure that is not there becomes 0.
    /// @return 1; 0 after an exception, which has been written to standard output and leaves `mem`
    /// as
    ///         it was
    int parse_meminfo(unsigned char* msg);
    /// Stores the figures of @p msg by key into @p figures.
    /// @throws std::invalid_argument, std::out_of_range "stol" on a value that is no number, too
    /// large
    void parseMeminfo(const std::string& msg, std::unordered_map<std::string, long>& figures);

    meminfo mem; ///< last decode
};

// ---------------------------------------------------------------- block devices and partitions

/// Keeps the two latest samples of the block devices' counters.
class MONCL_API block_stat_parser {
public:
    /// Decodes @p msg: a count byte, then that many packed `block_stat`, at most 170. The sample
    /// before stays in `last_stats` if it has as many devices.
    /// @return 0
    int block_stat_parse(unsigned char* msg);

    std::unique_ptr<block_stats> last_stats; ///< previous sample, or null
    std::unique_ptr<block_stats> stats;      ///< latest sample; null before the first
    timeval last_time{}; ///< receipt of the latest sample, set by the manager after its report
};

/// Keeps the latest list of partitions.
class MONCL_API partition_parser {
public:
    /// Decodes @p msg: a count byte, then that many packed `part_info`, at most 127.
    /// @return 1
    int partition_parse(unsigned char* msg);

    std::vector<part_info> part_vec; ///< last decode
};

// ------------------------------------------------------------------------ thermal, cooling, ion

/// Decodes a temperature: text, one decimal number.
class MONCL_API thermal_parser {
public:
    /// Decodes @p msg.
    /// @return 1; 0 after an exception
    /// @throws std::logic_error if @p msg is null
    int parse_thermal(unsigned char* msg);
    /// Decodes @p msg into `temp`; the last line that holds anything wins.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_thermal_msg(const std::string& msg);

    std::uint64_t temp = 0; ///< 1/1000 degree Celsius, last decode
};

/// Decodes the state of a cooling device: text, one decimal number.
class MONCL_API cooling_parser {
public:
    /// Decodes @p msg.
    /// @return 1; 0 after an exception
    /// @throws std::logic_error if @p msg is null
    int parse_cooling(unsigned char* msg);
    /// Decodes @p msg into `stat`; the last line that holds anything wins.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_cooling_msg(const std::string& msg);

    std::uint64_t stat = 0; ///< the device's own scale, last decode
};

/// Decodes all cooling devices and thermal zones at once.
class MONCL_API all_thermal_parser {
public:
    /// Decodes @p msg: a count byte of cooling texts, one of temperature texts, then the texts,
    /// each ended by a NUL. A text without a line repeats the value before it, 0 at first. Reads
    /// nothing behind the payload's 8192 bytes: texts there count as having no line.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_all(unsigned char* msg);

    std::vector<std::uint64_t> all_co; ///< cooling states, last decode
    std::vector<std::uint64_t> all_th; ///< 1/1000 degree Celsius, last decode
};

/// Keeps the latest list of ion heaps.
class MONCL_API ion_info_parser {
public:
    /// Decodes @p msg: a count byte, then that many packed `ion_info`.
    /// @return 1
    int parse_ion_info(unsigned char* msg);

    std::vector<ion_info> ion_vec; ///< last decode
};

// -------------------------------------------------------------------------------------- network

/// Bytes of one network device or process.
struct net_stat {
    char dev_name[16] = {};  ///< device name, at most 15 characters; unused for processes
    std::uint64_t total = 0; ///< cumulative bytes
    double rate = 0;         ///< bytes per second over the last interval
};

/// Keeps the bytes of every network device and of the registered processes.
class MONCL_API net_stat_parse {
public:
    /// Decodes one bandwidth answer; records that the payload cannot hold do not count, processes
    /// that are not registered are logged and skipped.
    /// @param delta_ms time since the previous bandwidth answer, 0 if there was none: then rates
    /// are 0
    /// @return 1
    int parse_net_stat(unsigned char* msg, unsigned long delta_ms);

    std::unordered_map<int, net_stat> dev_result; ///< by position in the answer
    std::unordered_map<int, net_stat> pid_result; ///< by process id; registered by the manager
};

// ----------------------------------------------------------------------------- accelerator load

/// Decodes the load of one accelerator core: text, one decimal number, fractions allowed.
class MONCL_API nnu_ratio_parser {
public:
    /// Decodes @p msg.
    /// @return 1; 0 after an exception
    /// @throws std::logic_error if @p msg is null
    int parse_nnu_ratio(unsigned char* msg);
    /// Decodes @p msg into `nnu_rat`; the last line that holds anything wins.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_nnu_msg(const std::string& msg);

    float nnu_rat = 0; ///< percent, last decode
    std::string name;  ///< core asked last, set by the manager
};

// ------------------------------------------------------------------------------- video pipeline

/// Frame rates of one pipe at one block of the video pipeline.
struct pipe_fps {
    std::string ip_name;          ///< the block's instance, as the server writes it
    std::uint16_t pipe_id = 0;    ///< pipe number
    std::uint16_t input_fps = 0;  ///< frames per second entering the block
    std::uint16_t output_fps = 0; ///< frames per second leaving the block
};

/// Frame rates by pipe number.
using fps_map = std::unordered_map<std::uint16_t, std::shared_ptr<pipe_fps>>;

/// One use case of the image signal processor. The first three fields are the characters of the
/// text, not their values.
struct isp_info {
    std::uint8_t ctx_count = 0;   ///< firmware contexts
    std::uint8_t active = 0;      ///< active contexts
    std::uint8_t unactive = 0;    ///< inactive contexts
    std::uint32_t pipe_id = 0;    ///< pipe number
    std::uint32_t frame_rate = 0; ///< frames per second
    std::uint32_t s_Width = 0;    ///< sensor width in pixels
    std::uint32_t s_Height = 0;   ///< sensor height in pixels
    std::string dev_sched_mode;   ///< scheduling mode, one word
};

/// Statistics of one pyramid scaler.
struct pym_stat {
    std::uint8_t mode = 0;          ///< the character of the text, not its value
    std::uint32_t input_width = 0;  ///< pixels
    std::uint32_t input_height = 0; ///< pixels
    std::uint64_t hw_drop_cnt =
        0; ///< frames dropped by hardware; 0 unless its label begins with it
    std::uint64_t sw_drop_cnt = 0;  ///< frames dropped by software
    std::uint64_t isp_drop_cnt = 0; ///< frames dropped on the image signal processor's side
};

// Decoders of the video pipeline add to what their parser holds; the manager empties it at the
// start of a query. Of two frame-rate lines of one pipe the first counts. All return false after an
// exception, which has been written to standard output, and keep what came before it. Those that
// take `unsigned char*` throw std::logic_error if it is null.

/// Decodes what the image signal processor reports.
class MONCL_API isp_parser {
public:
    bool parse_isp_fps(unsigned char* msg);          ///< decodes frame rates into `fps`
    bool parse_isp_fps_msg(const std::string& msg);  ///< decodes frame rates into `fps`
    bool parse_isp_info(unsigned char* msg);         ///< decodes, then prints all of `info` to
                                                     ///< standard output
    bool parse_isp_info_msg(const std::string& msg); ///< appends use cases to `info`

    fps_map fps;                                 ///< frame rates
    std::vector<std::shared_ptr<isp_info>> info; ///< use cases, in the order of the text
};

/// Decodes what the pyramid scaler reports.
class MONCL_API pym_parser {
public:
    bool parse_pym_fps(unsigned char* msg);          ///< decodes frame rates into `fps`
    bool parse_pym_fps_msg(const std::string& msg);  ///< decodes frame rates into `fps`
    bool parse_pym_stat(unsigned char* msg);         ///< decodes, then prints all of `stat` to
                                                     ///< standard output
    bool parse_pym_stat_msg(const std::string& msg); ///< appends instances to `stat`

    fps_map fps;                                 ///< frame rates
    std::vector<std::shared_ptr<pym_stat>> stat; ///< instances, in the order of the text
};

/// Decodes what the camera interface reports.
class MONCL_API cim_parser {
public:
    bool parse_cim_fps(unsigned char* msg);         ///< decodes frame rates into `fps`
    bool parse_cim_fps_msg(const std::string& msg); ///< decodes frame rates into `fps`

    fps_map fps; ///< frame rates
};

/// Decodes what the distortion correction reports; its lines carry no input rate.
class MONCL_API gdc_parser {
public:
    bool parse_gdc_fps(unsigned char* msg);         ///< decodes frame rates into `fps`
    bool parse_gdc_fps_msg(const std::string& msg); ///< decodes frame rates into `fps`

    fps_map fps; ///< frame rates
};

/// Answers to the delay query. Its maps, by block name, are not filled.
class MONCL_API vio_info_parser {
public:
    /// Writes "parse_vio_delay" and a line end to standard output; @p msg is not read.
    /// @return true
    static bool parse_vio_delay(unsigned char* msg);

    std::unordered_map<std::string, isp_parser> isps;
    std::unordered_map<std::string, pym_parser> pyms;
    std::unordered_map<std::string, gdc_parser> gdcs;
    std::unordered_map<std::string, cim_parser> cims;
};

#endif
