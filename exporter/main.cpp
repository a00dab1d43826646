// moncl-exporter: what servers say, over HTTP.
#include "api.h"
#include "http_server.h"
#include "library_output.h"
#include "log_filter.h"
#include "options.h"
#include "password_check.h"
#include "routes.h"
#include "stop_signal.h"

#include <cstdio>
#include <exception>
#include <iostream>

bool tools::show_log = false;

namespace exporter {
namespace {

constexpr std::chrono::minutes kept_for{15};
constexpr std::size_t kept_bytes = 64 << 20;

std::unique_ptr<tools::output> open_recording(const options& given) {
#ifdef MONCL_RECORDING
    if (!given.record.empty())
        return std::make_unique<tools::recording>(given.record, given.limits, std::cerr);
#else
    static_cast<void>(given);
#endif
    return nullptr;
}

http_options http_options_of(const options& given) {
    http_options made;
    made.at = given.listen;
    made.certificate = given.web.certificate;
    made.key = given.web.key;
    return made;
}

void say_where(const options& given, int port) {
    const std::string& text = given.listen.text;
    const std::string address = text.substr(0, text.rfind(':'));
    std::printf("moncl-exporter: listening at %s://%s:%d/\n",
                given.web.certificate.empty() ? "http" : "https", address.c_str(), port);
    std::fflush(stdout);
}

// Parts are destroyed in the opposite order of their declaration, so each one goes before the parts
// that it uses.
void run(const options& given) {
    tools::stop_signal stop; // before any thread
    const tools::library_output printed;
    tools::show_log = given.verbose;
    std::vector<std::string> hosts;
    for (const tools::endpoint& each : given.servers)
        hosts.push_back(each.text());
    host_states states(hosts);
    messages said;
    history kept(kept_for, kept_bytes);
    const auto recording = open_recording(given);
    const subject_list recorded =
        recording == nullptr ? subject_list() : default_subjects(given.subjects);
    feed samples({given.servers, given.interval, recorded, given.access}, kept, states, said,
                 recording.get());
    metrics_pages scrapes({given.servers, given.allowed_targets, given.subjects, given.access},
                          said, [&](const std::string& host, bool up, const std::string& why) {
                              samples.tell(host, up, why);
                          });
    api figures({samples, kept, states, given.interval, given.record, given.subjects});
    const host_names names(given.allowed_hosts);
    password_check passwords(given.web.users);
    const routes all(names, passwords, scrapes, figures);
    http_server server(http_options_of(given),
                       [&all](const request& asked) { return all.answer(asked); });
    say_where(given, server.port());
    constexpr int second_ms = 1000;
    while (!stop.wait_for(-1, -1, second_ms))
        server.close_overdue();
    samples.stop();
    scrapes.stop();
}

} // namespace
} // namespace exporter

int main(int argc, char** argv) {
    try {
        const exporter::options given = exporter::read_options(argc, argv);
        if (given.ends)
            return given.status;
        exporter::run(given);
        return 0;
    } catch (const std::exception& e) {
        std::cerr << "moncl-exporter: " << e.what() << "\n";
    }
    return 1;
}
