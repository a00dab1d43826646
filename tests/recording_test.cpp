// Recordings: what is replayed is what was recorded, whatever happens to the program, the disk and
// the file.
#include "child_process.h"
#include "figure_text.h"
#include "metrics_export.h"
#include "rates.h"
#include "recording.h"
#include "recording_source.h"
#include "sqlite.h"

#include <cstdlib>
#include <map>
#include <random>
#include <sstream>
#include <sys/mount.h>

using namespace tools;

namespace {

using clock_type = std::chrono::system_clock;
const clock_type::time_point start_of_tests{std::chrono::seconds(1800000000)};
constexpr double start_seconds = 5000;

/// A recording by a clock that is set by hand.
class recorder {
public:
    explicit recorder(const std::string& path, recording_options options = {})
        : to_(std::make_unique<recording>(path, options, err)) {}

    /// Records one report of @p host at @p second, of one subject.
    void report(const std::string& host, double second, const subject& what, sample figures) {
        figures.time = start_of_tests + std::chrono::milliseconds(std::lround(second * 1000));
        figures.seconds = start_seconds + second;
        to_->show({what, host, figures, {}});
        to_->end_report(host, 0, false);
    }
    /// Records reports of the disk, a second apart; it reads 1024 bytes in each.
    void disk_reports(int from, int count) {
        for (int second = from; second < from + count; ++second) {
            sample figures;
            figures.add("sda", 1024U * static_cast<unsigned>(second), 7U);
            report("board", second, *find_subject("disk"), figures);
        }
    }
    void finish() { to_->finish(); }

    std::ostringstream err;

private:
    std::unique_ptr<recording> to_;
};

struct recording_file : file_tree {
    std::string path = root() + "/night.db";
    std::string wal = path + "-wal";

    std::string sql(const std::string& query) const {
        const auto file = open_recording(path);
        statement ask(*file, query);
        return ask.step() ? ask.text(0) : "";
    }
    /// Ticks that there are, whether the file is sound, and that none of them lacks its row.
    std::string state() const {
        return sql("SELECT count(*) || ' ticks, ' || (SELECT count(*) FROM disk) || ' rows, ' || "
                   "(SELECT integrity_check FROM pragma_integrity_check) FROM ticks");
    }
};

// The rows of a report as text, in the order of their words.
std::string text_of(const subject& what, const sample& figures) {
    std::set<std::string> rows;
    for (const row& r : figures.rows) {
        std::string line = std::to_string(r.incarnation) + (r.is_total ? " total" : "");
        for (std::size_t i = 0; i < r.values.size(); ++i) {
            line += is_known(r.values[i]) ? " " : " -";
            append_plain(line, what.fields[i], r.values[i]);
        }
        rows.insert(line);
    }
    std::string text;
    for (const std::string& line : rows)
        text += line + "\n";
    return text;
}

// Processes that come and go, change and stay as they are.
sample random_processes(std::mt19937& random) {
    sample figures;
    for (int pid = 1; pid < 12; ++pid) {
        if (random() % 3 == 0)
            continue;
        const auto few = [&random] { return static_cast<double>(random() % 8) == 0; };
        figures.add(std::to_string(pid),
                    pid == 3 ? value() : value("name\t\xff" + std::string(1, '"')),
                    few() ? "R" : "S", "1", random() % 2, -std::int64_t{few()},
                    few() ? 12.345678 : 1e15 / 3, few() ? value() : value(0.5), 0.0, 100.25,
                    few() ? ~std::uint64_t{0} >> 1 : 4096U);
        figures.rows.back().incarnation = few() ? ~std::uint64_t{0} : 1;
        figures.rows.back().is_total = pid == 4;
    }
    return figures;
}

// Runs that have reports; 0 while there is no file.
int runs_in(const recording_file& file) {
    try {
        return std::stoi(file.sql("SELECT count(DISTINCT run) FROM ticks"));
    } catch (const std::runtime_error&) {
        return 0;
    }
}

void change(const std::string& path, const std::string& sql) {
    database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE).run(sql);
}

std::string run_tool(const std::string& command) {
    std::string text;
    FILE* from = popen(command.c_str(), "r");
    char part[4096];
    while (const std::size_t n = fread(part, 1, sizeof part, from))
        text.append(part, n);
    return pclose(from) == 0 ? text : "failed: " + text;
}
} // namespace

TEST(recording, gives_back_what_was_recorded) {
    const subject& top = *find_subject("top");
    std::mt19937 random(1);
    for (const double sync : {1.0, 7.0, 100.0}) {
        const recording_file file;
        std::map<std::pair<std::string, std::int64_t>, std::string> recorded;
        std::map<std::string, std::int64_t> rows;
        for (int run = 0; run < 3; ++run) {
            recorder to(file.path, {sync, 0, 0});
            for (int second = 100 * run; second < 100 * run + 60; ++second) {
                for (const char* host : {"one", "two"}) {
                    if (random() % 5 == 0)
                        continue;
                    const sample figures = random_processes(random);
                    rows[host] += static_cast<std::int64_t>(figures.rows.size());
                    recorded[{host, second}] = text_of(top, figures);
                    to.report(host, second, top, figures);
                }
            }
        }
        for (const std::string& host : recorded_hosts(file.path)) {
            recording_reader from(file.path, host);
            for (auto at = from.first(); at; at = from.after(at->tick)) {
                const auto second = std::lround(at->seconds) - 1800000000;
                const auto found = recorded.find({host, second});
                ASSERT_NE(found, recorded.end()) << second;
                EXPECT_EQ(text_of(top, from.read(*at, {&top}, 0).answers[0].figures), found->second)
                    << host << " at " << second << " s";
                recorded.erase(found);
            }
            EXPECT_EQ(file.sql("SELECT count(*) FROM top WHERE host = '" + host + "'"),
                      std::to_string(rows[host]));
        }
        EXPECT_TRUE(recorded.empty())
            << "reports are missing, the first of " << recorded.begin()->first.first;
    }
}

TEST(recording, shows_figures_in_their_units_to_sql) {
    const recording_file file;
    recorder to(file.path);
    sample figures;
    figures.add("0", 150U, 0U, 3U, 1U, 1U, 1U, 1U, 1U, 1U, 1U);
    to.report("board", 0.25, *find_subject("cpu"), figures);
    sample memory;
    memory.add(4096U, value(), 12.5, 1U, 1U, 1U, 1U, 1U, 1U);
    to.report("board", 1.25, *find_subject("mem"), memory);
    to.finish();
    EXPECT_EQ(file.sql("SELECT utc || ' ' || host || ' ' || cpu || ' ' || user_seconds FROM cpu"),
              "2027-01-15T08:00:00.250Z board 0 1.5");
    EXPECT_EQ(file.sql("SELECT total_bytes || ' ' || ifnull(available_bytes, 'unknown') || ' ' || "
                       "used_percent FROM mem"),
              "4096 unknown 12.5");
    EXPECT_EQ(file.sql("SELECT kind || ', ' || unit || ', 1/' || parts FROM fields WHERE subject = "
                       "'cpu' AND field = 'user_seconds'"),
              "counter, seconds, 1/100");
}

TEST(recording, does_not_repeat_what_stays_the_same) {
    for (const double sync : {1.0, 10.0}) {
        const recording_file file;
        recorder to(file.path, {sync, 0, 0});
        for (int second = 0; second < 160; ++second) {
            sample figures;
            figures.add("sda", 1U, 2U);
            to.report("board", second, *find_subject("disk"), figures);
        }
        to.finish();
        EXPECT_EQ(file.sql("SELECT count(*) FROM disk"), "160");
        EXPECT_EQ(file.sql("SELECT count(*) FROM disk_data"), "10") << sync;
        EXPECT_EQ(file.sql("SELECT count(*) FROM disk_series"), "1");
    }
}

TEST(recording, averages_from_counters) {
    const recording_file file;
    // In each minute everything is read in one second; the recording is started again at 2:10.
    for (const auto& [from, to] : {std::pair(0, 125), {130, 180}}) {
        recorder recorded(file.path);
        for (int second = from; second <= to; ++second) {
            sample figures;
            figures.add("sda", 60U * 1024U * static_cast<unsigned>((second + 59) / 60), 0U);
            recorded.report("board", second, *find_subject("disk"), figures);
        }
    }
    child_process moncl({MONCL_PROGRAM, "disk", "60", "--from", file.path, "--format", "csv"});
    EXPECT_EQ(moncl.wait(), 0) << moncl.err;
    EXPECT_EQ(moncl.out, "time,host,device,read_bytes,written_bytes,read_bytes_per_second,"
                         "written_bytes_per_second\r\n"
                         "2027-01-15T08:01:00.000Z,board,sda,61440,0,1024,0\r\n"
                         "2027-01-15T08:02:00.000Z,board,sda,122880,0,1024,0\r\n"
                         "2027-01-15T08:03:00.000Z,board,sda,184320,0,1024,0\r\n");
    child_process part({MONCL_PROGRAM, "disk", "--from", file.path, "--since", "-2s", "--until",
                        "2027-01-15T08:02:59Z", "--json"});
    EXPECT_EQ(part.wait(), 0) << part.err;
    EXPECT_EQ(std::count(part.out.begin(), part.out.end(), '\n'), 2);
    EXPECT_NE(part.out.find("\"read_bytes_per_second\":0"), part.out.npos) << part.out;
    child_process all({MONCL_PROGRAM, "disk", "--from", file.path, "--since",
                       "2027-01-15T08:02:10Z", "-n", "1", "--json"});
    EXPECT_EQ(all.wait(), 0) << all.err;
    EXPECT_NE(all.out.find("\"interval_s\":null"), all.out.npos)
        << "rates across a gap: " << all.out;
}

TEST(recording, is_stepped_through_both_ways) {
    const recording_file file;
    {
        recorder made(file.path);
        made.disk_reports(0, 6);
        made.finish();
    }
    replay_plan plan;
    plan.subjects = {find_subject("disk")};
    plan.compares = true;
    plan.stands_still = true;
    recording_source source(file.path, "board", plan);
    rate_former rates(*find_subject("disk"));
    // The second of each report and its rate, "base" for one that is only compared with.
    const auto next = [&] {
        report got;
        EXPECT_TRUE(source.next(got));
        sample& figures = got.answers.at(0).figures;
        if (got.gap)
            rates.forget();
        rates.compare(figures);
        const auto second =
            std::chrono::duration_cast<std::chrono::seconds>(figures.time - start_of_tests);
        std::string text = std::to_string(second.count()) + (got.base ? " base" : " ");
        append_plain(text, find_subject("disk")->fields[3], figures.rows.at(0).values[3]);
        return text;
    };
    EXPECT_EQ(next(), "0 ");
    source.step(2);
    EXPECT_EQ(next(), "2 1024");
    source.step(-1);
    EXPECT_EQ(next(), "0 base");
    EXPECT_EQ(next(), "1 1024");
    source.step(100);
    EXPECT_EQ(next(), "5 1024") << "the end";
    source.step(-100);
    EXPECT_EQ(next(), "0 base") << "before it there is none to compare with";
    source.set_interval(0.01);
    source.set_playing(true);
    EXPECT_EQ(next(), "1 1024");
    EXPECT_EQ(next(), "2 1024");
    source.cancel();
    report none;
    EXPECT_FALSE(source.next(none));
}

TEST(recording, shows_hosts_in_the_order_of_time) {
    const recording_file file;
    recorder to(file.path);
    for (int second = 0; second < 200; ++second)
        for (const char* host : {"b", "a"}) {
            sample figures;
            figures.add("sda", 0U, 0U);
            to.report(host, second + (*host == 'a' ? 0.5 : 0), *find_subject("disk"), figures);
        }
    to.finish();
    child_process moncl({MONCL_PROGRAM, "disk", "--from", file.path, "--format", "csv"});
    EXPECT_EQ(moncl.wait(), 0) << moncl.err;
    std::istringstream text(moncl.out.substr(moncl.out.find('\n') + 1));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    EXPECT_EQ(lines.size(), 400U);
    EXPECT_TRUE(std::is_sorted(lines.begin(), lines.end())) << moncl.out;
}

TEST(recording, says_why_it_refuses_a_file) {
    const struct {
        const char* name;
        std::function<void(const recording_file&)> prepare;
        const char* complaint;
    } cases[] = {
        {"text", [](auto& f) { f.write("/night.db", std::string(5000, 'x')); },
         " is no recording of moncl"},
        {"another database", [](auto& f) { change(f.path, "CREATE TABLE t(a)"); },
         " is no recording of moncl"},
        {"newer schema",
         [](auto& f) {
             recorder(f.path).disk_reports(0, 3);
             change(f.path, "PRAGMA user_version = 2");
         },
         " was written by a newer moncl: its schema is 2, this one reads up to 1"},
    };
    for (const auto& each : cases) {
        const recording_file file;
        each.prepare(file);
        for (const bool writes : {true, false}) {
            try {
                if (writes)
                    recorder(file.path).finish();
                else
                    recorded_hosts(file.path);
                ADD_FAILURE() << each.name;
            } catch (const std::runtime_error& e) {
                EXPECT_EQ(e.what(), file.path + each.complaint) << each.name;
            }
        }
    }
    const recording_file file;
    const recorder first(file.path);
    EXPECT_THROW(recorder second(file.path), std::runtime_error);
}

TEST(recording, reads_and_brings_up_to_date_what_an_older_program_made) {
    const recording_file file;
    recorder(file.path).disk_reports(0, 3);
    change(file.path, "DROP VIEW disk; ALTER TABLE disk_data DROP written_bytes");
    recording_reader from(file.path, "board");
    const subject& disk = *find_subject("disk");
    EXPECT_EQ(text_of(disk, from.read(*from.last(), {&disk}, 0).answers[0].figures),
              "0 sda 2048 -\n");
    recorder(file.path).disk_reports(10, 3);
    EXPECT_EQ(file.sql("SELECT group_concat(ifnull(written_bytes, '-')) FROM disk"), "-,-,-,7,7,7");
}

// Whatever its bytes say, reading ends without a crash, and what it gives is limited.
TEST(recording, reads_damaged_files) {
    const subject& disk = *find_subject("disk");
    const char* const damages[] = {
        "UPDATE ticks SET time = 9223372036854775807, steady = -9223372036854775808",
        "UPDATE ticks SET tick = 9223372036854775807 WHERE tick = 3",
        "UPDATE disk_data SET ticks = 9223372036854775807",
        "UPDATE disk_data SET key = 9223372036854775807 WHERE key = (SELECT max(key) FROM "
        "disk_data)",
        "UPDATE disk_data SET read_bytes = 'text', ticks = x'00'",
        "UPDATE disk_series SET device = NULL, incarnation = 'text'",
        "DROP TABLE disk_series",
        "DROP TABLE events",
        "DELETE FROM runs",
    };
    const auto read_all = [&](const std::string& path) {
        int reports = 0;
        try {
            recording_reader from(path, "board");
            for (auto at = from.first(); at; at = from.after(at->tick), ++reports)
                text_of(disk, from.read(*at, {&disk}, 0).answers[0].figures);
            writer to(-1);
            metrics_export metrics(path, {"board"}, {{&disk}, {}, {}, {}, {}, false}, to);
            metrics.run([](double) { return true; });
        } catch (const std::runtime_error&) {
        }
        return reports;
    };
    for (const char* damage : damages) {
        const recording_file file;
        recorder(file.path).disk_reports(0, 3);
        change(file.path, damage);
        EXPECT_LE(read_all(file.path), 3) << damage;
    }
    const recording_file whole;
    recorder(whole.path).disk_reports(0, 300);
    std::mt19937 random(4);
    for (int turn = 0; turn < 60; ++turn) {
        const recording_file damaged;
        std::ostringstream bytes;
        bytes << std::ifstream(whole.path).rdbuf();
        std::string text = bytes.str();
        for (int i = 0; i < 40; ++i)
            text[100 + random() % (text.size() - 100)] = static_cast<char>(random());
        damaged.write("/night.db", text);
        EXPECT_LE(read_all(damaged.path), 3000) << turn;
    }
}

TEST(recording, survives_kill_and_shows_the_gap) {
    const recording_file file;
    for (int run = 0; run < 2; ++run) {
        child_process moncl(
            {MONCL_PROGRAM, "record", file.path, "mem,disk", "0.01", "--sync", "0.05"});
        for (int turn = 0; turn < 400 && runs_in(file) <= run; ++turn)
            usleep(25000);
        child_process second({MONCL_PROGRAM, "record", file.path, "1", "1"});
        EXPECT_EQ(second.wait(), 1);
        EXPECT_NE(second.err.find("another process is recording to"), std::string::npos);
        moncl.send_signal(SIGKILL);
        moncl.wait();
    }
    EXPECT_EQ(file.sql("SELECT integrity_check FROM pragma_integrity_check"), "ok");
    EXPECT_EQ(file.sql("SELECT count(*) || ' runs, ' || count(ended) || ' ended' FROM runs"),
              "2 runs, 0 ended");
    child_process moncl({MONCL_PROGRAM, "mem", "--from", file.path, "--json"});
    EXPECT_EQ(moncl.wait(), 0) << moncl.err;
    EXPECT_EQ(std::to_string(std::count(moncl.out.begin(), moncl.out.end(), '\n')),
              file.sql("SELECT count(*) FROM ticks"));
}

// A power cut leaves the log as it was at some moment.
TEST(recording, loses_nothing_committed_to_a_cut_log) {
    const recording_file file;
    recorder to(file.path, {5, 0, 0});
    to.disk_reports(0, 101);
    const auto whole = std::filesystem::file_size(file.wal);
    std::size_t before = 0;
    for (std::uintmax_t length = 0; length <= whole; length += whole / 97) {
        const recording_file cut;
        std::filesystem::copy(file.path, cut.path);
        std::filesystem::copy(file.wal, cut.wal);
        std::filesystem::resize_file(cut.wal, length);
        if (length < 40000) // the tables are not there yet
            continue;
        const auto ticks = std::stoul(cut.sql("SELECT count(*) FROM ticks"));
        EXPECT_EQ(cut.state(),
                  std::to_string(ticks) + " ticks, " + std::to_string(ticks) + " rows, ok");
        EXPECT_GE(ticks, before) << length;
        before = ticks;
    }
    EXPECT_EQ(before, 101U);
}

TEST(recording, says_once_that_the_disk_is_full_and_goes_on) {
    const recording_file file;
    const std::string disk = file.root() + "/disk";
    std::filesystem::create_directory(disk);
    if (mount("none", disk.c_str(), "tmpfs", 0, "size=1M") != 0)
        GTEST_SKIP() << "a file system of its own needs root";
    std::string said;
    {
        recorder to(disk + "/night.db", {10, 0, 0});
        to.disk_reports(0, 50);
        std::ofstream(disk + "/other") << std::string(1 << 20, 'x');
        to.disk_reports(50, 100);
        std::filesystem::remove(disk + "/other");
        to.disk_reports(150, 50);
        to.finish();
        said = to.err.str();
        recording_reader from(disk + "/night.db", "board");
        int ticks = 0;
        for (auto at = from.first(); at; at = from.after(at->tick))
            ++ticks;
        EXPECT_EQ(ticks, 200);
    }
    umount(disk.c_str());
    EXPECT_EQ(said, "moncl: cannot write " + disk +
                        "/night.db: database or disk is full; recording goes on as soon as it can\n"
                        "moncl: " +
                        disk + "/night.db can be written again; reports lost: 0\n");
}

TEST(recording, keeps_the_latest_and_stops_growing) {
    const recording_file by_time;
    recorder keeping(by_time.path, {10, 100, 0});
    keeping.disk_reports(0, 1000);
    EXPECT_EQ(by_time.sql("SELECT (max(time) - min(time)) / 1000 BETWEEN 100 AND 130 FROM ticks"),
              "1");
    EXPECT_EQ(by_time.sql("SELECT count(*) < 160 FROM disk_data"), "1");

    const recording_file by_size;
    std::mt19937 random(2);
    recorder to(by_size.path, {10, 0, 1 << 20});
    for (int second = 0; second < 5000; ++second)
        to.report("board", second, *find_subject("top"), random_processes(random));
    EXPECT_LT(std::filesystem::file_size(by_size.path) + std::filesystem::file_size(by_size.wal),
              1U << 20);
    EXPECT_EQ(by_size.sql("SELECT max(time) / 1000 FROM ticks"), "1800004990");
    EXPECT_EQ(by_size.sql("SELECT min(tick) > 1000 FROM ticks"), "1");
    EXPECT_EQ(by_size.sql("SELECT integrity_check FROM pragma_integrity_check"), "ok");
    EXPECT_EQ(by_size.sql("SELECT count(DISTINCT time) = (SELECT count(*) FROM ticks) FROM top"),
              "1");
}

TEST(recording, lets_no_reader_make_its_log_grow_without_end) {
    const recording_file file;
    recorder to(file.path, {1, 0, 0, 1 << 20});
    to.disk_reports(0, 10);
    {
        const auto reader = open_recording(file.path);
        statement asks(*reader, "SELECT * FROM ticks");
        asks.step(); // and stays there
        to.disk_reports(10, 400);
        EXPECT_LT(std::filesystem::file_size(file.wal), (1U << 20) + 100000);
    }
    to.disk_reports(410, 10);
    EXPECT_LT(std::filesystem::file_size(file.wal), 200000U);
    EXPECT_EQ(file.state(), "420 ticks, 420 rows, ok");
    EXPECT_EQ(to.err.str(), "moncl: cannot write " + file.path +
                                ": a reader of it keeps its log at 1 MB; recording goes on as soon "
                                "as it can\nmoncl: " +
                                file.path + " can be written again; reports lost: 0\n");
}

TEST(recording, is_taken_by_promtool_as_sql_has_it) {
    if (run_tool("command -v promtool").find("failed") == 0)
        GTEST_SKIP() << "needs promtool, of Debian's package prometheus";
    const recording_file file;
    std::mt19937 random(3);
    {
        recorder to(file.path, {10, 0, 0});
        for (int second = 0; second < 50; ++second) {
            to.report(second % 2 == 0 ? "one" : "two", second, *find_subject("top"),
                      random_processes(random));
            to.disk_reports(100 + second, 1);
        }
    }
    const std::string dump =
        run_tool(std::string(TEST_EMULATOR " " MONCL_PROGRAM) + " export " + file.path +
                 " --format openmetrics > " + file.root() +
                 "/om && promtool tsdb create-blocks-from openmetrics " + file.root() + "/om " +
                 file.root() + "/blocks >&2 && mkdir " + file.root() +
                 "/blocks/wal && promtool tsdb dump " + file.root() + "/blocks");
    std::set<std::string> dumped;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);)
        if (line.find("moncl_disk_read_bytes_total") != line.npos ||
            line.find("moncl_top_nnu_ratio") != line.npos)
            dumped.insert(line.substr(line.find("__name__")));
    std::set<std::string> recorded;
    const auto from = open_recording(file.path);
    statement ask(
        *from,
        "SELECT '__name__=\"moncl_disk_read_bytes_total\", device=\"' || device || '\", host=\"' "
        "|| "
        "host || '\"} ' || read_bytes || ' ' || time FROM disk UNION ALL "
        "SELECT '__name__=\"moncl_top_nnu_ratio\", host=\"' || host || '\", pid=\"' || pid || '\"} "
        "' "
        "|| (nnu_percent / 100) || ' ' || time FROM top WHERE nnu_percent NOT NULL AND pid <> '4'");
    while (ask.step())
        recorded.insert(ask.text(0));
    EXPECT_GT(recorded.size(), 300U);
    EXPECT_EQ(dumped, recorded) << dump.substr(0, 500);
}

TEST(time_text, reads_times_of_a_recording) {
    const char* const zone = std::getenv("TZ");
    const std::string zone_before = zone == nullptr ? "" : zone;
    setenv("TZ", "CET-1", 1);
    tzset();
    const struct {
        const char* text;
        const char* expected; // of a recording that ends at 06:00:10 there
    } cases[] = {
        {"2027-01-15", "2027-01-14T23:00:00.000Z"},
        {"2027-01-15T03:00", "2027-01-15T02:00:00.000Z"},
        {"2027-01-15 03:00:01", "2027-01-15T02:00:01.000Z"},
        {"2027-01-15T03:00:00.25Z", "2027-01-15T03:00:00.250Z"},
        {"2027-01-15T03:00:00-05:30", "2027-01-15T08:30:00.000Z"},
        {"03:00", "2027-01-15T02:00:00.000Z"},
        {"06:00:10", "2027-01-15T05:00:10.000Z"},
        {"06:00:11", "2027-01-14T05:00:11.000Z"},
        {"-2h", "2027-01-15T03:00:10.000Z"},
        {"-90", "2027-01-15T04:58:40.000Z"},
        {"-0.5s", "2027-01-15T05:00:09.500Z"},
        {"3:00", nullptr},
        {"24:00", nullptr},
        {"03:00x", nullptr},
        {"2027-02-31", nullptr},
        {"9999-01-01", nullptr},
        {"2027-01-15T03:00+1", nullptr},
        {"-2y", nullptr},
        {"-", nullptr},
        {"", nullptr},
    };
    const clock_type::time_point end = clock_type::from_time_t(1799989210);
    for (const auto& each : cases) {
        const auto given = read_time(each.text);
        EXPECT_EQ(given ? utc_text(given->resolve(end)) : "",
                  each.expected == nullptr ? "" : each.expected)
            << each.text;
    }
    EXPECT_EQ(utc_text(read_time("01:00")->resolve(end, end)), "2027-01-16T00:00:00.000Z");
    zone == nullptr ? unsetenv("TZ") : setenv("TZ", zone_before.c_str(), 1);
    tzset();
    EXPECT_EQ(read_duration("7d"), 604800);
    EXPECT_EQ(read_duration("0"), std::nullopt);
    EXPECT_EQ(read_size("200M"), 200U << 20);
    EXPECT_EQ(read_size("200 M"), std::nullopt);
    EXPECT_EQ(read_size("99999999T"), std::nullopt);
}
