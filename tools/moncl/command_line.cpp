// Reading the command line.
#include "command_line.h"

#include "arguments.h"
#include "encryption.h"
#include "output.h"
#include "version.h"

#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <iterator>
#include <limits>
#include <sstream>

namespace tools {

namespace {

constexpr const char* synopsis =
    "moncl [SUBJECT[,SUBJECT...]] [NAME...] [INTERVAL [COUNT]] [OPTION...]";

struct command_line_options {
    std::vector<std::string> words;
    std::vector<std::string> connect;
    std::string key;
    std::vector<std::string> server_keys;
    std::vector<std::string> cpus;
    std::vector<std::string> only;
    bool help = false;
    bool json = false;
};

[[noreturn]] void refuse(const std::string& fault) {
    throw arguments::fault(fault);
}

bool is_number(const std::string& word) {
    double number = 0;
    return arguments::read_number(word, number);
}

// Below a millisecond, and beyond a day, an interval is a slip of the finger.
double read_interval(const std::string& word) {
    double seconds = 0;
    if (!arguments::read_number(word, seconds) || !(seconds >= 0.001 && seconds <= 86400))
        refuse("an interval is 0.001 to 86400 seconds, not " + word);
    return seconds;
}

long read_count(const std::string& word) {
    long count = 0;
    if (!arguments::read_number(word, count) || count < 1 || count > 1000000000)
        refuse("a count is a whole number from 1 on, not " + word);
    return count;
}

std::string list_of_subjects() {
    std::ostringstream list;
    for (const subject* each : all_subjects())
        list << "  " << std::left << std::setw(10) << each->name << each->help << "\n";
    return list.str();
}

std::vector<const subject*> read_subjects(const std::string& word) {
    std::vector<const subject*> subjects;
    for (const std::string& name : arguments::split_at_commas(word)) {
        const subject* found = find_subject(name);
        if (found == nullptr)
            refuse("there is no subject " + name + "; see moncl --help");
        if (std::find(subjects.begin(), subjects.end(), found) == subjects.end())
            subjects.push_back(found);
    }
    return subjects;
}

void take_own_words(const command& own, std::vector<std::string>& words,
                    std::vector<std::string>& into) {
    if (words.size() < own.words)
        refuse(std::string(own.name) + " needs " + own.synopsis);
    const auto end = words.begin() + static_cast<std::ptrdiff_t>(own.words);
    into.assign(words.begin(), end);
    words.erase(words.begin(), end);
}

// SUBJECTS NAME... INTERVAL COUNT, all of it optional.
void read_words(std::vector<std::string> words, invocation& into) {
    if (!words.empty() && !is_number(words.front())) {
        into.subjects = read_subjects(words.front());
        words.erase(words.begin());
    }
    auto numbers = std::find_if(words.begin(), words.end(), is_number);
    for (auto name = words.begin(); name != numbers; ++name)
        if (find_subject(*name) != nullptr)
            refuse(*name + " is a subject: join subjects by commas, or name a row by --only");
    into.chosen.names.insert(into.chosen.names.end(), words.begin(), numbers);
    if (numbers != words.end())
        into.when.interval = read_interval(*numbers++);
    if (numbers != words.end())
        into.when.count = read_count(*numbers++);
    if (numbers != words.end())
        refuse("what is " + *numbers + " after the count?");
}

void read_cpus(const std::vector<std::string>& lists, selection& chosen) {
    for (const std::string& list : lists) {
        for (const std::string& cpu : arguments::split_at_commas(list)) {
            if (cpu == "ALL")
                chosen.every_cpu = true;
            else if (cpu == "all" ||
                     (!cpu.empty() && cpu.find_first_not_of("0123456789") == cpu.npos))
                chosen.cpus.push_back(cpu);
            else
                refuse("-P takes numbers of CPUs, all or ALL, not " + cpu);
        }
    }
}

std::vector<std::string> words_of(const char* variable) {
    const char* text = std::getenv(variable);
    std::istringstream words(text == nullptr ? "" : text);
    return {std::istream_iterator<std::string>(words), {}};
}

void read_servers(std::vector<std::string> given, invocation& into) {
    const bool asks_own_host = into.root != "/" || into.simulate_board || !into.from.empty();
    if (given.empty() && !asks_own_host)
        given = words_of("MONCL_CONNECT");
    for (const std::string& text : given) {
        endpoint at;
        if (const std::string fault = read_endpoint(text, at); !fault.empty())
            refuse("--connect " + text + ": " + fault);
        into.servers.push_back(at);
    }
}

void read_keys(const command_line_options& given, std::vector<endpoint>& servers) {
    std::string key = given.key;
    std::vector<std::string> server_keys = given.server_keys;
    if (servers.empty() && (!key.empty() || !server_keys.empty()))
        refuse("--key and --server-key are for servers: name one with --connect");
    if (servers.empty())
        return;
    const char* own = std::getenv("MONCL_KEY");
    if (key.empty() && own != nullptr)
        key = own;
    if (server_keys.empty())
        server_keys = words_of("MONCL_SERVER_KEY");
    if (const std::string wrong = give_keys(key, server_keys, servers); !wrong.empty())
        refuse(wrong);
}

void read_given_time(const std::string& option, const std::string& text,
                     std::optional<given_time>& into) {
    into = read_time(text);
    if (!into)
        refuse(option + " is a time such as 2026-11-21T03:00, 03:00 or -2h, not " + text);
}

// What only a look at everything shows.
void check(const invocation& called) {
    const auto any = [&called](bool subject::*flag) {
        return std::any_of(called.subjects.begin(), called.subjects.end(),
                           [flag](const subject* each) { return each->*flag; });
    };
    if (!called.chosen.names.empty() && called.subjects.size() != 1)
        refuse("names choose rows of one subject: name that alone");
    if (called.from.empty() && (called.since || called.until || !called.host.empty()))
        refuse("--since, --until and --host are for recordings: name one with --from");
    if (any(&subject::needs_pids) && called.chosen.pids.empty() && called.from.empty())
        refuse("which processes? Name them with -p PID");
    if (called.library_report && !called.from.empty())
        refuse("the library has no reports of recordings");
    if (called.form == "csv" && called.subjects.size() != 1)
        refuse("the columns of CSV are those of one subject: name one");
    if (!called.library_report)
        return;
    for (const subject* each : called.subjects)
        if (each->library_report == nullptr)
            refuse(std::string("the library has no report of ") + each->name);
    if (!called.chosen.names.empty())
        refuse("the library's report has all rows: names choose none of them");
    if (called.servers.size() > 1 || called.form != "table")
        refuse("the library's report is text, of one server");
}

void add_recording(arguments::parser& app, arguments::option* connect, invocation& into) {
    app.add_option("--from", into.from, "Show what was recorded in FILE (moncl record)")
        ->excludes(connect)
        ->placeholder("FILE");
    app.add_option("--host", into.host, "Of the recording only this host's part")
        ->placeholder("HOST");
    const auto add_time = [&](const char* name, const char* help, std::optional<given_time>& to) {
        app.add_option(
               name, [name, &to](const std::string& text) { read_given_time(name, text, to); },
               help)
            ->placeholder("TIME");
    };
    add_time("--since", "Of the recording what is not before TIME: ISO 8601, HH:MM or -2h",
             into.since);
    add_time("--until", "Of the recording what is not after TIME", into.until);
}

void add_command(arguments::parser& app, const command& own, invocation& into) {
    for (const command_option& each : own.options)
        app.add_option(
               each.name,
               [&each, &into](const std::string& text) {
                   if (const std::string fault = each.check(text); !fault.empty())
                       refuse(std::string(each.name) + " " + fault + ", not " + text);
                   into.options[each.name] = text;
               },
               each.help)
            ->placeholder(each.placeholder);
}

void add_source(arguments::parser& app, command_line_options& options, invocation& into) {
    auto* connect = app.add_option("--connect", options.connect,
                                   "Ask the server at HOST[:PORT]; may be given again, and "
                                   "defaults to MONCL_CONNECT. Without it a server is started "
                                   "inside the program");
    connect->one_value()->placeholder("HOST[:PORT]");
    app.add_option("--key", options.key,
                   "Encrypt with the keys in FILE (moncl keygen FILE); defaults to MONCL_KEY")
        ->placeholder("FILE");
    app.add_option("--server-key", options.server_keys,
                   "Public key of the server, or a file of it; given once, or once for each "
                   "--connect. Defaults to MONCL_SERVER_KEY")
        ->one_value()
        ->placeholder("KEY|FILE");
    app.add_option("--root", into.root, "Folder the server inside reads in place of /")
        ->existing_folder()
        ->excludes(connect)
        ->placeholder("FOLDER");
    auto* simulate =
        app.add_flag("--simulate-board", into.simulate_board,
                     "Let the server inside make up the figures of hardware that this host lacks");
    simulate->excludes(connect);
    app.add_option("--seed", into.seed,
                   "Number that the simulated figures are made from; 1 unless given")
        ->needs(simulate)
        ->range(0, 4294967295)
        ->placeholder("N");
    add_recording(app, connect, into);
    app.add_flag("--verbose", into.verbose, "Show the library's log on standard error");
}

void add_selection(arguments::parser& app, command_line_options& options, invocation& into) {
    app.add_option("-P,--cpu", options.cpus, "These CPUs: numbers, all for the total, ALL for each")
        ->one_value()
        ->placeholder("CPU[,CPU...]");
    app.add_option("-p,--pid", into.chosen.pids, "Watch the process; may be given again")
        ->comma_separated()
        ->one_value()
        ->range(1, std::numeric_limits<int>::max())
        ->placeholder("PID[,PID...]");
    app.add_option("--only", options.only, "Rows of this name, also if it is a number")
        ->one_value()
        ->placeholder("NAME");
    app.add_option("--rows", into.chosen.rows, "Show at most N processes in top")
        ->range(1, 100000)
        ->placeholder("N");
}

void add_form(arguments::parser& app, command_line_options& options, invocation& into) {
    std::vector<std::string> forms;
    for (const output_form& each : all_outputs())
        forms.emplace_back(each.name);
    std::string joined;
    for (const std::string& each : forms)
        joined += (joined.empty() ? "" : "|") + each;
    auto* form = app.add_option("--format", into.form, "Form of output");
    form->one_of(forms)->placeholder("{" + joined + "}");
    app.add_flag("--json", options.json, "Short for --format json")->excludes(form);
    app.add_option(
           "--report", [&into](const std::string&) { into.library_report = true; },
           "library: the library's own report of the subject")
        ->one_of({"library"})
        ->placeholder("library");
    app.add_flag("--time", into.time_column, "Start each row of a table with the time");
    app.add_option("--color", into.colour, "Colour: auto, always or never")
        ->one_of({"auto", "always", "never"})
        ->placeholder("WHEN");
}

const char* kind_name(kind what) {
    constexpr const char* names[] = {"label", "text", "gauge", "counter", "rate"};
    return names[static_cast<std::size_t>(what)];
}

std::string list_of_commands() {
    std::ostringstream list;
    for (const command& each : all_commands())
        if (*each.name != '\0')
            list << "  " << std::left << std::setw(10) << each.name << each.help << "\n";
    return list.str();
}

void show_help(const arguments::parser& app, const command* own,
               const std::vector<std::string>& words, std::ostream& out) {
    const subject* about = words.empty() || own != nullptr ? nullptr : find_subject(words.front());
    if (about == nullptr) {
        // CLI11's own usage line knows nothing of what the words mean.
        std::string help = app.help();
        const std::string its_own = "Usage: moncl [OPTIONS] [...]";
        if (const std::size_t at = help.find(its_own); at != help.npos)
            help.replace(at, help.find('\n', at) - at,
                         "Usage: " + (own == nullptr ? synopsis
                                                     : std::string("moncl ") + own->name + " " +
                                                           own->synopsis));
        out << help << "\nCommands; moncl COMMAND --help describes one:\n"
            << list_of_commands() << "\nSubjects; moncl SUBJECT --help describes one:\n"
            << list_of_subjects();
        return;
    }
    out << about->name << ": " << about->help << "\n\n";
    for (const field& each : about->fields)
        out << "  " << std::left << std::setw(30) << each.name << std::setw(12)
            << (*each.heading == '\0' ? "" : each.heading) << std::setw(9) << kind_name(each.what)
            << each.help << "\n";
}
} // namespace

invocation read_command_line(std::vector<std::string> words, std::ostream& out, std::ostream& err) {
    invocation result;
    command_line_options options;
    if (!words.empty() && !words.front().empty())
        result.does = find_command(words.front());
    if (result.does != nullptr)
        words.erase(words.begin());
    arguments::parser app("Shows what a monitoring server says of its board.", "moncl");
    app.own_help();
    app.add_flag("-h,--help", options.help, "Show this, or the fields of a subject");
    app.set_version(version_text());
    app.add_option("WORDS", options.words, "");
    app.add_option(
           "-i,--interval",
           [&](const std::string& word) { result.when.interval = read_interval(word); },
           "Seconds between reports, as INTERVAL")
        ->placeholder("SECONDS");
    app.add_option(
           "-n,--count", [&](const std::string& word) { result.when.count = read_count(word); },
           "Number of reports, as COUNT")
        ->placeholder("N");
    add_selection(app, options, result);
    add_form(app, options, result);
    add_source(app, options, result);
    if (result.does != nullptr)
        add_command(app, *result.does, result);
    try {
        result.ends = !app.parse(std::move(words), out);
        if (options.help) {
            show_help(app, result.does, options.words, out);
            result.ends = true;
        }
        if (result.ends)
            return result;
        if (options.json)
            result.form = "json";
        result.chosen.names = options.only;
        if (result.does != nullptr)
            take_own_words(*result.does, options.words, result.words);
        if (result.does != nullptr && result.does->reads_recording)
            result.from = result.words.front();
        read_words(options.words, result);
        read_cpus(options.cpus, result.chosen);
        read_servers(options.connect, result);
        read_keys(options, result.servers);
        result.summary = result.subjects.empty() && result.does == nullptr;
        if (result.summary)
            for (const subject* each : all_subjects())
                if (each->summary_rows > 0)
                    result.subjects.push_back(each);
        check(result);
    } catch (const arguments::fault& e) {
        err << "moncl: " << e.what() << "\nmoncl --help shows how it is used\n";
        result.ends = true;
        result.status = exit_usage;
    }
    return result;
}

} // namespace tools
