// monsrv, the monitoring server as a program.
#include "arguments.h"
#include "build_facts.h"
#include "monitor_server.h"
#include "program/log_lines.h"
#include "program/rights.h"
#include "program/service_manager.h"

#include <cerrno>
#include <csignal>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace {
// Ends a server on SIGINT and SIGTERM, and lets it read its keys again on SIGHUP, as long as it
// lives.
class signal_handling {
public:
    signal_handling(monsrv::monitor_server& server, bool has_keys) {
        running = &server;
        std::signal(SIGINT, stop);
        std::signal(SIGTERM, stop);
        if (has_keys)
            std::signal(SIGHUP, read_keys_again);
    }
    ~signal_handling() {
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGTERM, SIG_DFL);
        std::signal(SIGHUP, SIG_DFL);
        running = nullptr;
    }
    signal_handling(const signal_handling&) = delete;
    signal_handling& operator=(const signal_handling&) = delete;

private:
    static void stop(int) { running->stop(); }
    static void read_keys_again(int) { running->read_keys_again(); }
    static inline monsrv::monitor_server* running = nullptr;
};

// Ports below this one are root's.
int first_free_port() {
    int port = 1024;
    std::ifstream("/proc/sys/net/ipv4/ip_unprivileged_port_start") >> port;
    return port;
}

// Gives up rights, says so, and makes sure that there is still something to answer from.
void become_unprivileged(const monsrv::rights_wanted& wanted, const std::string& root) {
    if (const std::string said = monsrv::give_up_rights(wanted); !said.empty())
        monsrv::log_line(monsrv::log_level::notice, said);
    if (access(root.c_str(), R_OK | X_OK) == -1)
        throw std::system_error(errno, std::generic_category(),
                                "cannot read " + root + " any more (see --user)");
}

// Says that the server answers now, and lets the service manager watch its loop.
void announce(monsrv::monitor_server& server, const monsrv::service_manager& manager,
              const std::string& text) {
    if (monsrv::logs_to_journal())
        monsrv::log_line(monsrv::log_level::info, text);
    else
        std::cout << "monsrv: " << text << std::endl;
    if (manager.alive_period().count() > 0)
        server.call_every(manager.alive_period(), [&manager] { manager.alive(); });
    manager.ready(text);
}

// Refuses an address that other hosts reach while everybody may ask there.
// Returns what is given away if that is wanted.
std::string check_openness(const monsrv::listen_address& where, const std::string& text,
                           bool is_encrypted, bool is_wanted) {
    if (where.is_loopback || is_encrypted)
        return {};
    const std::string given =
        "without --curve-key everybody who reaches " + text +
        " can read this host's processes, disks and network, and whoever is on the way reads along";
    if (!is_wanted)
        throw std::runtime_error(given + "; --insecure allows that");
    return given;
}
} // namespace

int main(int argc, char** argv) {
    arguments::parser app("Monitoring server: answers moncl from this host's kernel.", "monsrv");
    app.set_version(build_facts::text_of("monsrv"));
    std::string address = "127.0.0.1";
    int port = 5757;
    monsrv::server_options options;
    app.add_option("--bind", address, "Address or interface to listen at; * for all, IPv4 and IPv6")
        ->show_default();
    app.add_option("--port", port, "Port to listen at; 0 picks a free one")
        ->range(0, 65535)
        ->show_default();
    app.add_option("--root", options.root, "Folder to read in place of /")
        ->existing_folder()
        ->show_default();
    monsrv::rights_wanted rights;
    app.add_option("--user", rights.user,
                   "User that a server started as root becomes (default: monsrv if there is such a "
                   "user, else nobody)");
    app.add_flag("--all-processes", rights.all_processes,
                 "Answer what the kernel keeps from other users as well: I/O and sockets of all "
                 "processes, performance counters. Needs to be started as root");
    auto* simulate = app.add_flag("--simulate-board", options.simulate_board,
                                  "Make up the figures of hardware that this host lacks");
    app.add_option("--seed", options.seed, "What the simulated figures follow from")
        ->needs(simulate)
        ->range(0, 4294967295L)
        ->show_default();
    std::string key_path;
    monsrv::curve_options curve;
    bool insecure = false;
    auto* key_file = app.add_option("--curve-key", key_path,
                                    "File with this server's pair of keys: encrypts connections")
                         ->existing_file();
    auto* allow_file =
        app.add_option(
               "--allow", curve.allow_file,
               "File with the public keys of the clients that may connect; read again on SIGHUP")
            ->needs(key_file);
    key_file->needs(allow_file);
    app.add_flag("--insecure", insecure, "Listen beyond this host without encryption");
    app.add_option("--max-clients", options.max_clients, "Connections at once")
        ->range(1, 100000)
        ->show_default();
    try {
        if (!app.parse({argv + 1, argv + argc}, std::cout))
            return 0;
    } catch (const arguments::fault& e) {
        std::cerr << "monsrv: " << e.what() << "\nmonsrv --help shows how it is used\n";
        return 2;
    }
    try {
        if (!key_path.empty()) {
            if (const std::string wrong = monsrv::read_key_pair(key_path, curve.keys);
                !wrong.empty())
                throw std::runtime_error(wrong);
            options.curve = curve;
        }
        const monsrv::listen_address where = monsrv::find_listen_address(address, port);
        const std::string given_away =
            check_openness(where, address, options.curve.has_value(), insecure);
        if (!given_away.empty())
            monsrv::log_line(monsrv::log_level::warning, given_away);
        monsrv::reserve_descriptors(options.max_clients);
        rights.low_port = port > 0 && port < first_free_port();
        become_unprivileged(rights, options.root);
        const monsrv::service_manager manager;
        monsrv::monitor_server server(options);
        port = server.bind(where, monsrv::endpoint_text(address, std::to_string(port)));
        const signal_handling signals(server, options.curve.has_value());
        if (options.simulate_board)
            monsrv::log_line(monsrv::log_level::warning, std::string(monsrv::simulation_notice));
        announce(server, manager,
                 "listening at " + monsrv::endpoint_text(address, std::to_string(port)));
        server.run();
        manager.stopping();
    } catch (const std::exception& e) {
        monsrv::log_line(monsrv::log_level::error, e.what());
        return 1;
    }
    return 0;
}
