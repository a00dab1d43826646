// monsrv, the monitoring server as a program.
#include "monitor_server.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

namespace {
// Ends a server on SIGINT and SIGTERM, as long as it lives.
class signal_stop {
public:
    explicit signal_stop(monsrv::monitor_server& server) {
        running = &server;
        std::signal(SIGINT, stop);
        std::signal(SIGTERM, stop);
    }
    ~signal_stop() {
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGTERM, SIG_DFL);
        running = nullptr;
    }
    signal_stop(const signal_stop&) = delete;
    signal_stop& operator=(const signal_stop&) = delete;

private:
    static void stop(int) { running->stop(); }
    static inline monsrv::monitor_server* running = nullptr;
};
} // namespace

int main(int argc, char** argv) {
    CLI::App app("Monitoring server: answers moncl from this host's kernel.", "monsrv");
    app.set_version_flag("--version", "monsrv " MONCL_VERSION);
    std::string address = "127.0.0.1";
    int port = 5757;
    monsrv::server_options options;
    app.add_option("--bind", address, "Address or interface to listen at; * for all, IPv4 and IPv6")
        ->capture_default_str();
    app.add_option("--port", port, "Port to listen at; 0 picks a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--root", options.root, "Folder to read in place of /")
        ->check(CLI::ExistingDirectory)
        ->capture_default_str();
    auto* simulate = app.add_flag("--simulate-board", options.simulate_board,
                                  "Make up the figures of hardware that this host lacks");
    app.add_option("--seed", options.seed, "What the simulated figures follow from")
        ->needs(simulate)
        ->check(CLI::Range(0L, 4294967295L))
        ->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    try {
        monsrv::monitor_server server(options);
        port = server.bind(address, port);
        const signal_stop stopping(server);
        if (options.simulate_board)
            std::cerr << "monsrv: " << monsrv::simulation_notice << std::endl;
        std::cout << "monsrv: listening at " << monsrv::endpoint_text(address, std::to_string(port))
                  << std::endl;
        server.run();
    } catch (const std::exception& e) {
        std::cerr << "monsrv: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
