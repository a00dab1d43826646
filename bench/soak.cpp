// A long run: every query of every manager, over and over, against a server that is stopped, killed
// and started again on the way; half of the queries over encrypted connections to a server of their
// own. Prints what both sides hold and fails if that grows.
#include "arguments.h"
#include "cpu_stat_manager.h"
#include "net_stat_manager.h"
#include "nnu_ratio_manager.h"
#include "peri_stat_manager.h"
#include "recovery.h"
#include "sys_info_manager.h"
#include "vio_info_manager.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <limits>
#include <optional>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <zmq.h>

namespace {
std::atomic<long> errors_logged{0};
}

// Counts errors without printing them: a million failures would be a million lines.
extern "C" int __android_log_print(int priority, const char*, const char*, ...) {
    constexpr int error = 6;
    errors_logged += priority >= error;
    return 0;
}

namespace {
/// Keys of an encrypted server and of its clients, and the server's files.
class key_files {
public:
    key_files() {
        zmq_curve_keypair(server_public, server_secret);
        zmq_curve_keypair(client_public, client_secret);
        if (mkdtemp(folder_.data()) == nullptr)
            throw std::runtime_error(std::strerror(errno));
        std::ofstream(pair()) << "public = \"" << server_public << "\"\nsecret = \""
                              << server_secret << "\"\n";
        std::filesystem::permissions(pair(), std::filesystem::perms::owner_read);
        std::ofstream(allowed()) << client_public << " soak\n";
    }
    ~key_files() { std::filesystem::remove_all(folder_); }
    key_files(const key_files&) = delete;
    key_files& operator=(const key_files&) = delete;

    std::string pair() const { return folder_ + "/server.key"; }
    std::string allowed() const { return folder_ + "/allowed"; }

    char server_public[41];
    char client_secret[41];

private:
    char server_secret[41];
    char client_public[41];
    std::string folder_ = std::filesystem::temp_directory_path() / "moncl_soak_XXXXXX";
};

/// monsrv as a child process, at the same port each time it is started.
class server_process {
public:
    /// @param keys null: a plain server
    server_process(std::string path, const key_files* keys) : path_(std::move(path)) {
        if (keys != nullptr)
            options_ = {"--curve-key", keys->pair(), "--allow", keys->allowed()};
        start();
    }
    ~server_process() { stop(); }
    server_process(const server_process&) = delete;
    server_process& operator=(const server_process&) = delete;

    /// @throws std::runtime_error if it does not say where it listens
    void start() {
        int said[2];
        // Clients ask for I/O and sockets of this process.
        std::vector<std::string> words = {"monsrv", "--simulate-board", "--all-processes", "--port",
                                          std::to_string(port_)};
        words.insert(words.end(), options_.begin(), options_.end());
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        if (pipe(said) != 0 || (pid_ = fork()) == -1)
            throw std::runtime_error(std::strerror(errno));
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(said[1], STDOUT_FILENO);
            closefrom(STDERR_FILENO + 1);
            execv(path_.c_str(), arguments.data());
            _exit(127);
        }
        close(said[1]);
        std::string line;
        for (char c = 0; c != '\n' && read(said[0], &c, 1) == 1;)
            line += c;
        close(said[0]);
        if (line.find(':') == line.npos)
            throw std::runtime_error(path_ + " does not listen");
        port_ = std::stoi(line.substr(line.rfind(':') + 1));
    }
    void stop() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_t pid() const { return pid_; }
    int port() const { return port_; }

private:
    std::string path_;
    std::vector<std::string> options_;
    pid_t pid_ = -1;
    int port_ = 0;
};

/// What a process holds.
struct holdings {
    long resident_kb = 0;
    long threads = 0;
    long descriptors = 0;

    explicit holdings(pid_t pid) {
        const std::string folder = "/proc/" + std::to_string(pid);
        std::ifstream status(folder + "/status");
        for (std::string key; status >> key; status.ignore(1000, '\n')) {
            if (key == "VmRSS:")
                status >> resident_kb;
            else if (key == "Threads:")
                status >> threads;
        }
        // The folder that is being counted is open meanwhile, in this process.
        descriptors = std::distance(std::filesystem::directory_iterator(folder + "/fd"), {}) -
                      (pid == getpid() ? 1 : 0);
    }
    /// Compares with @p start, which it takes the place of if there is none.
    bool has_grown(std::optional<holdings>& start, long extra_threads) const {
        constexpr long slack_kb = 1024; // allocators keep some
        if (!start)
            start = *this;
        return resident_kb > start->resident_kb + slack_kb ||
               threads > start->threads + extra_threads || descriptors > start->descriptors;
    }
};

/// The managers, a connection each, and all they can be asked.
class front_end {
public:
    /// @param keys if not null, the connections are encrypted with these, and hold an id each: the
    ///             process's id is another server's
    front_end(int port, const key_files* keys)
        : port_(port), keys_(keys), system_(connection()), cpus_(connection()), nnu_(connection()),
          peri_(connection()), vio_(connection()), net_(connection()) {
        cpus_.add_stat_monitor_process(getpid());
        cpus_.add_io_monitor_process(getpid());
        const auto add = [this](const std::shared_ptr<client_comm>& connection, auto... asks) {
            (queries_.push_back({connection.get(), asks}), ...);
        };
        add(
            system_.client, [this] { return system_.get_cpu0_freq(); },
            [this] { return system_.get_cpu_possible(&report_); },
            [this] { return system_.get_version(); });
        add(
            cpus_.client, [this] { return cpus_.get_cpu_usage(&report_); },
            [this] { return cpus_.get_process_stat(&report_); },
            [this] { return cpus_.get_process_io(&report_); },
            [this] { return cpus_.get_process_all(0, &report_); },
            [this] { return cpus_.get_interrupt(&report_); },
            [this] { return cpus_.enable_perf_mon(); },
            [this] { return cpus_.get_perf_data(&report_); },
            [this] { return cpus_.disable_perf_mon(); });
        add(
            nnu_.client, [this] { return nnu_.get_nnu_ratio_all(&report_); },
            [this] { return nnu_.get_nnu1_ratio(&report_); });
        add(
            peri_.client, [this] { return peri_.get_meminfo(&report_); },
            [this] { return peri_.get_block_usage(&report_); },
            [this] { return peri_.get_partition_info(partitions_, &report_); },
            [this] { return peri_.get_all_thermal(&report_); },
            [this] { return peri_.get_thermal(1, &report_); },
            [this] { return peri_.get_cooling_0(&report_); },
            [this] { return peri_.get_cooling_1(&report_); },
            [this] { return peri_.get_ion_info(&report_); });
        add(
            vio_.client, [this] { return vio_.get_isp_info(); },
            [this] { return vio_.get_isp_fps(); }, [this] { return vio_.get_cim_fps(); },
            [this] { return vio_.get_pym_fps(); }, [this] { return vio_.get_gdc_fps(); },
            [this] { return vio_.get_pym_stat(); }, [this] { return vio_.get_vio_delay(); });
        add(
            net_.client, [this] { return net_.start_net_monitor(); },
            [this] { return net_.add_net_monitor_process(getpid()); },
            [this] { return net_.get_bandwidth_stat(&report_); },
            [this] { return net_.remove_net_monitor_process(getpid()); },
            [this] { return net_.exit_net_monitor(); });
    }

    /// Asks everything once.
    /// @return the number of queries
    long ask_all() {
        for (const auto& [connection, query] : queries_)
            ask(*connection, query);
        return static_cast<long>(queries_.size());
    }
    /// Asks one thing, another one each time.
    long ask_one() {
        const auto& [connection, query] = queries_[next_++ * 5 % queries_.size()];
        ask(*connection, query);
        return 1;
    }
    /// Ids that clients hold, as the server counts them; -1 if it does not say.
    int held_ids() {
        constexpr int counts = 1;
        client_comm& asked = *system_.client;
        if (asked.send_msg_to_server(server_command, counts, nullptr, 0) < 0 ||
            asked.recv_msg_from_server() < 0)
            return -1;
        const std::string text = reinterpret_cast<const char*>(asked.get_recv_data()->msg);
        const std::string name = "held_ids ";
        const std::size_t at = text.find(name);
        return at == text.npos ? -1 : std::atoi(text.c_str() + at + name.size());
    }
    /// A client that comes and goes.
    bool visit() const {
        const auto visitor = connection();
        visitor->keep_own_id();
        const bool connected =
            visitor->connect_to_server() == 0 && visitor->get_recv_data()->msg[0] != 0;
        return leave(*visitor) == 0 && connected;
    }
    /// Ids that are held, if all is well.
    int ids() const { return keys_ != nullptr ? 6 : 1; }

    long refused = 0;
    long unanswered = 0;

private:
    // Starts over if no answer comes.
    void ask(client_comm& connection, const std::function<int()>& query) {
        report_.str({});
        const int code = query();
        if (code >= 0)
            return;
        if (answered(connection, code)) {
            ++refused;
            return;
        }
        ++unanswered;
        start_over(connection);
    }
    std::shared_ptr<client_comm> connection() const {
        auto made = std::make_shared<client_comm>("127.0.0.1", port_);
        made->stop_at_last_part(true);
        if (keys_ == nullptr)
            return made;
        made->encrypt(keys_->client_secret, keys_->server_public);
        made->keep_own_id();
        return made;
    }

    int port_;
    const key_files* keys_;
    std::ostringstream report_;
    std::vector<const char*> partitions_;
    sysinfo_manager system_;
    cpu_stat_manager cpus_;
    nnu_ratio_manager nnu_;
    peri_stat_manager peri_;
    vio_info_manager vio_;
    net_stat_manager net_;
    std::vector<std::pair<client_comm*, std::function<int()>>> queries_;
    std::size_t next_ = 0;
};

/// A server and who asks it.
struct asked_server {
    asked_server(const std::string& path, const key_files* keys)
        : server(path, keys), asking(server.port(), keys) {}

    server_process server;
    front_end asking;
    std::optional<holdings> start; // of this server process of several
};

/// The run and its table.
class soak {
public:
    soak(const std::string& server, std::ostream& out)
        : plain_(server, nullptr), encrypted_(server, &keys_), out_(out) {}

    /// @return whether both sides held at the end what they did at the start
    bool run(long queries, int disturbances) {
        out_ << "            client                        plain server                            "
                "encrypted server\n"
                "   queries  resident KB  descr.  threads  resident KB  descr.  threads  ids held  "
                "resident KB  descr.  threads  ids held\n";
        const long stretch = queries / (disturbances + 1) + 1;
        while (asked_ < queries) {
            const long until = asked_ + stretch;
            ask_until(std::min(asked_ + settling, until));
            take_stock();
            ask_until(until);
            take_stock();
            if (asked_ < queries)
                disturb();
        }
        for (const asked_server* each : {&plain_, &encrypted_})
            out_ << (each == &plain_ ? "plain: " : "encrypted: ") << each->asking.refused
                 << " queries refused by the server, " << each->asking.unanswered
                 << " unanswered and started over\n";
        out_ << visits_ << " clients came and went; each server " << disturbances_
             << " times killed or stopped; " << errors_logged << " errors logged\n"
             << (well_ ? "Nothing grew.\n" : "Something GREW or was lost.\n");
        return well_;
    }

private:
    static constexpr long settling = 10000; // queries until memory stops growing
    // Most that a server makes, one by one, when a read takes its time.
    static constexpr long reader_threads = 64;

    void ask_until(long count) {
        while (asked_ < count)
            asked_ += plain_.asking.ask_all() + encrypted_.asking.ask_all();
    }

    void show(const holdings& h) {
        out_ << std::setw(13) << h.resident_kb << std::setw(8) << h.descriptors << std::setw(9)
             << h.threads;
    }

    void take_stock() {
        int held[2] = {};
        for (asked_server* each : {&plain_, &encrypted_}) {
            for (int i = 0; i < 100; ++i, ++visits_)
                well_ = each->asking.visit() && well_;
            const int ids = each->asking.held_ids();
            held[each == &encrypted_] = ids;
            well_ = ids == each->asking.ids() && well_;
        }
        usleep(300000); // a server closes connections of visitors some time after they left
        const holdings client(getpid());
        out_ << std::setw(10) << asked_;
        show(client);
        well_ = !client.has_grown(client_start_, 0) && well_;
        for (asked_server* each : {&plain_, &encrypted_}) {
            const holdings server(each->server.pid());
            show(server);
            out_ << std::setw(10) << held[each == &encrypted_];
            well_ = !server.has_grown(each->start, reader_threads) && well_;
        }
        out_ << std::endl;
    }

    // Kills or stops the servers, asks them in vain, and has them back.
    void disturb() {
        const bool stop = ++disturbances_ % 3 == 0;
        for (asked_server* each : {&plain_, &encrypted_}) {
            if (stop)
                kill(each->server.pid(), SIGSTOP);
            else
                each->server.stop();
            asked_ += each->asking.ask_one();
            if (stop) {
                kill(each->server.pid(), SIGCONT);
                continue;
            }
            each->server.start();
            each->start.reset();
        }
    }

    key_files keys_;
    asked_server plain_;
    asked_server encrypted_;
    std::ostream& out_;
    std::optional<holdings> client_start_;
    long asked_ = 0;
    long visits_ = 0;
    int disturbances_ = 0;
    bool well_ = true;
};
} // namespace

int main(int argc, char** argv) {
    arguments::parser app("Asks servers of its own over and over and shows what all sides hold.",
                          "moncl_soak");
    long queries = 1000000;
    int disturbances = 12;
    std::string server;
    app.add_option("queries", queries, "Queries to ask")
        ->range(1, std::numeric_limits<long>::max())
        ->show_default();
    app.add_option("--server", server, "Path of monsrv")->required()->existing_file();
    app.add_option("--disturbances", disturbances, "Times the server is killed or stopped")
        ->range(0, 1000)
        ->show_default();
    try {
        if (!app.parse({argv + 1, argv + argc}, std::cout))
            return 0;
    } catch (const arguments::fault& e) {
        std::cerr << "moncl_soak: " << e.what() << "\n";
        return 2;
    }
    // Some answers are printed by the library: their text goes nowhere.
    std::ostream out(std::cout.rdbuf(nullptr));
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return soak(server, out).run(queries, disturbances) ? 0 : 1;
    } catch (const char* failure) {
        std::cerr << "moncl_soak: " << failure << "\n";
    } catch (const std::exception& e) {
        std::cerr << "moncl_soak: " << e.what() << "\n";
    }
    return 1;
}
