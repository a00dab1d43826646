// Asking a server again and again.
#include "session.h"

#include "local_server.h"
#include "recovery.h"

#include <cstring>

namespace tools {

namespace {
bool is_done(const subject& what) {
    return what.done && what.done();
}
} // namespace

session::session(const source& from, std::ostream& out, std::ostream& err)
    : out_(out), err_(err), host_(from.host), port_(from.port) {
    if (!host_.empty())
        return;
    server_ = std::make_unique<local_server>(
        monsrv::server_options{from.root, from.simulate_board, from.seed});
    host_ = "127.0.0.1";
    port_ = server_->port();
    err_ << "moncl: asking a server inside this program, at " << host_ << ":" << port_ << std::endl;
    if (from.simulate_board)
        err_ << "moncl: " << monsrv::simulation_notice << std::endl;
}

session::~session() = default;

std::shared_ptr<client_comm> session::new_connection() const {
    auto connection = std::make_shared<client_comm>(host_, port_);
    connection->stop_at_last_part(true);
    connection->allow_ipv6(host_.front() == '[');
    return connection;
}

int session::repeat(const schedule& when, const subject& what) {
    ticker ticks(ticker::clock::now(), when.period());
    bool well = true;
    if (what.compares) {
        well = ask(what, nullptr);
        if (!well && when.interval <= 0)
            return exit_failed;
        if (is_done(what) || stop_.wait_until(ticks.next(ticker::clock::now())))
            return well ? exit_ok : exit_failed;
    }
    for (long done = 0;;) {
        well = ask(what, &out_);
        if (!end_report())
            return exit_ok;
        if (++done == when.reports() || is_done(what) ||
            stop_.wait_until(ticks.next(ticker::clock::now())))
            return well ? exit_ok : exit_failed;
    }
}

// Asks once, over new sockets if the server did not answer last time.
// Returns whether the server answered; a request that it refuses counts as failed as well.
bool session::ask(const subject& what, std::ostream* report) {
    if (away_)
        reconnect(what);
    // After an outage the sample before it says nothing about now.
    if (what.compares && !compared_)
        report = nullptr;
    const int code = what.query(report);
    if (code < 0) {
        complain(what, code);
        return false;
    }
    if (away_)
        err_ << "moncl: " << host_ << ":" << port_ << " is back" << std::endl;
    away_ = false;
    compared_ = true;
    return true;
}

void session::complain(const subject& what, int code) {
    for (const auto& connection : what.connections) {
        if (answered(*connection, code)) {
            err_ << "moncl: the server answers: " << std::strerror(-code) << std::endl;
            return;
        }
    }
    if (!away_)
        err_ << "moncl: no answer from " << host_ << ":" << port_ << ", trying again" << std::endl;
    away_ = true;
    compared_ = false;
}

void session::reconnect(const subject& what) {
    for (const auto& connection : what.connections)
        if (start_over(*connection) < 0)
            return;
    if (what.introduce)
        what.introduce();
}

// Returns whether anybody still reads.
bool session::end_report() {
    out_.flush();
    return static_cast<bool>(out_);
}

} // namespace tools
