// Reading the command line.
#include "options.h"

#include "arguments.h"
#include "build_facts.h"
#include "encryption.h"
#include "metrics.h"
#include "time_text.h"

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
    std::string key;
    std::vector<std::string> server_keys;
    std::string subjects;
    std::string web_config;
    bool insecure = false;
};

#ifdef MONCL_RECORDING
using text_check = std::string (*)(const std::string&);

void check_value(const char* option, text_check fault_of, const std::string& text) {
    if (const std::string wrong = fault_of(text); !wrong.empty())
        throw arguments::fault(std::string(option) + " " + wrong + ", not " + text);
}

void add_limits(arguments::parser& app, tools::recording_options& into) {
    app.add_option(
           "--keep",
           [&into](const std::string& text) {
               check_value("--keep", tools::duration_fault, text);
               into.keep_seconds = *tools::read_duration(text);
           },
           "Delete what of the recording is older, such as 7d")
        ->placeholder("TIME");
    app.add_option(
           "--max-size",
           [&into](const std::string& text) {
               check_value("--max-size", tools::size_fault, text);
               into.max_bytes = *tools::read_size(text);
           },
           "Delete the oldest when the recording gets that large, such as 200M")
        ->placeholder("SIZE");
}
#endif

void add_options(arguments::parser& app, words& given, options& into) {
    app.add_option("--listen", given.listen,
                   "Address of this machine to listen at; * for all, port 0 for a free one")
        ->placeholder("ADDRESS:PORT [127.0.0.1:9757]");
    app.add_option("--connect", given.connect,
                   "Ask the server at HOST[:PORT]; may be given again, and defaults to "
                   "MONCL_CONNECT, else to 127.0.0.1:5757")
        ->one_value()
        ->placeholder("HOST[:PORT]");
    app.add_option("--key", given.key,
                   "Encrypt with the keys in FILE (moncl keygen FILE); defaults to MONCL_KEY")
        ->placeholder("FILE");
    app.add_option("--server-key", given.server_keys,
                   "Public key of the server, or a file of it; given once, or once for each "
                   "server. Defaults to MONCL_SERVER_KEY")
        ->one_value()
        ->placeholder("KEY|FILE");
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
    add_limits(app, into.limits);
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

std::vector<std::string> words_of(const char* variable) {
    const char* text = std::getenv(variable);
    std::istringstream list(text == nullptr ? "" : text);
    return {std::istream_iterator<std::string>(list), {}};
}

void read_servers(std::vector<std::string> given, options& into) {
    if (given.empty())
        given = words_of("MONCL_CONNECT");
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

// Targets are asked with the key that all servers share. If servers have different keys, it is not
// known which one a target has.
void read_keys(const words& given, options& into) {
    const char* from_environment = std::getenv("MONCL_KEY");
    const std::string key =
        given.key.empty() && from_environment != nullptr ? from_environment : given.key;
    const std::vector<std::string> server_keys =
        given.server_keys.empty() ? words_of("MONCL_SERVER_KEY") : given.server_keys;
    const bool one_for_all = server_keys.size() < 2;
    if (!one_for_all && !into.allowed_targets.empty())
        throw std::runtime_error("--allow-target goes with one --server-key for all servers");
    std::vector<tools::endpoint> all = into.servers;
    if (one_for_all)
        all.emplace_back(); // stands for the targets
    if (const std::string wrong = tools::give_keys(key, server_keys, all); !wrong.empty())
        throw std::runtime_error(wrong);
    if (one_for_all) {
        into.access.target_keys = all.back().keys;
        all.pop_back();
    }
    into.servers = std::move(all);
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
    read_keys(given, read);
    if (!given.web_config.empty())
        read.web = read_web_config(given.web_config);
    check_safety(read, given.insecure);
    return read;
}

} // namespace exporter
