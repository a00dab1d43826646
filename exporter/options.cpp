// Reading the command line.
#include "options.h"

#include "arguments.h"
#include "build_facts.h"
#include "metrics.h"

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace exporter {

namespace {
/// Texts that are read once all of them are there.
struct words {
    std::string listen = "127.0.0.1:9757";
    std::vector<std::string> connect;
    std::string subjects;
    std::string web_config;
    bool insecure = false;
};

void add_options(arguments::parser& app, words& given, options& into) {
    app.add_option("--listen", given.listen,
                   "Address of this machine to listen at; * for all, port 0 for a free one")
        ->placeholder("ADDRESS:PORT [127.0.0.1:9757]");
    app.add_option("--connect", given.connect,
                   "Ask the server at HOST[:PORT]; may be given again, and defaults to "
                   "MONCL_CONNECT, else to 127.0.0.1:5757")
        ->one_value()
        ->placeholder("HOST[:PORT]");
    app.add_option("--subject", given.subjects,
                   "Subjects of /metrics in place of the usual ones, such as cpu,mem,top,irq,perf")
        ->placeholder("NAME[,NAME...]");
    app.add_option("--rows", into.access.rows, "At most N of the busiest processes")
        ->range(1, 146)
        ->placeholder("N [20]");
    app.add_option("--interval", into.interval, "Seconds between the samples of pages")
        ->real_range(0.1, 3600)
        ->placeholder("SECONDS [1]");
#ifdef MONCL_RECORDING
    app.add_option("--record", into.record, "Record all the time, in FILE, for pages to look back")
        ->placeholder("FILE");
#endif
    app.add_option("--web-config", given.web_config,
                   "TLS and users, as in the web configuration of Prometheus' exporters")
        ->placeholder("FILE");
    app.add_option("--allow-host", into.allowed_hosts, "A name that this exporter is asked by")
        ->one_value()
        ->placeholder("NAME");
    app.add_option("--allow-target", into.allowed_targets,
                   "Servers that /probe may be sent to; * stands for letters and digits")
        ->one_value()
        ->placeholder("HOST[:PORT]");
    app.add_flag("--insecure", given.insecure,
                 "Listen beyond this machine with neither TLS nor users");
    app.add_flag("--verbose", into.verbose, "Show the library's log on standard error");
}

void read_servers(std::vector<std::string> given, options& into) {
    const char* from_environment = std::getenv("MONCL_CONNECT");
    if (given.empty() && from_environment != nullptr) {
        std::istringstream list(from_environment);
        given.assign(std::istream_iterator<std::string>(list), {});
    }
    if (given.empty() && into.allowed_targets.empty())
        given = {"127.0.0.1"};
    std::set<std::string> seen;
    for (const std::string& text : given) {
        tools::endpoint at;
        if (const std::string wrong = tools::read_endpoint(text, at); !wrong.empty())
            throw std::runtime_error("--connect " + text + ": " + wrong);
        if (seen.insert(at.text()).second)
            into.servers.push_back(at);
    }
}

void check_safety(const options& read, bool insecure) {
    if (!read.listen.is_loopback() && read.web.certificate.empty() && read.web.users.empty() &&
        !insecure)
        throw std::runtime_error("--listen " + read.listen.text +
                                 " would let everybody in who gets there: give TLS or users by "
                                 "--web-config, or say --insecure");
}
} // namespace

options read_options(int argc, char** argv) {
    arguments::parser app("Metrics, figures and a page about servers, over HTTP.",
                          "moncl-exporter");
    app.set_version(build_facts::text_of("moncl-exporter"));
    words given;
    options read;
    add_options(app, given, read);
    try {
        read.ends = !app.parse({argv + 1, argv + argc}, std::cout);
    } catch (const arguments::fault& e) {
        std::cerr << "moncl-exporter: " << e.what()
                  << "\nmoncl-exporter --help shows how it is used\n";
        read.ends = true;
        read.status = 2;
    }
    if (read.ends)
        return read;
    if (const std::string wrong = read_listen_address(given.listen, read.listen); !wrong.empty())
        throw std::runtime_error("--listen " + given.listen + ": " + wrong);
    if (const std::string wrong = read_subjects(given.subjects, {}, read.subjects); !wrong.empty())
        throw std::runtime_error("--subject " + given.subjects + ": " + wrong);
    read_servers(given.connect, read);
    if (!given.web_config.empty())
        read.web = read_web_config(given.web_config);
    check_safety(read, given.insecure);
    return read;
}

} // namespace exporter
