// Every subject in every form, over one simulated server, compared with tests/data/console.
// MONCL_REWRITE_GOLDEN=1 rewrites the files; read what has changed before it is committed.
#include "board_of_files.h"
#include "console_run.h"

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

namespace {
// The lines of @p text that @p known does not have.
std::string new_lines(const std::string& text, const std::string& known) {
    std::string result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (("\n" + known).find("\n" + line + "\n") == known.npos)
            result += line + "\n";
    return result;
}

std::string shown_as(const char* form, const char* subject, std::size_t rows) {
    const board_of_files board;
    console_run run({board.port()}, {subject}, form);
    run.chosen.pids = {1234, 1300};
    run.rows_max = rows;
    run.run();
    return run.out + run.err;
}

// Every form of the first report, but CSV, which repeats JSON. Of OpenMetrics one row, as each of
// its values is a line, and of the older text form only what OpenMetrics does not have.
std::string in_all_forms(const char* subject) {
    const std::string openmetrics = shown_as("openmetrics", subject, 1);
    const std::string end = "# HELP moncl_up Whether the server answered\n"
                            "# TYPE moncl_up gauge\nmoncl_up 1\n# EOF\n";
    EXPECT_NE(openmetrics.find(end), openmetrics.npos) << subject;
    return "#### table\n" + shown_as("table", subject, 3) + "#### json\n" +
           shown_as("json", subject, 3) + "#### openmetrics\n" +
           openmetrics.substr(0, openmetrics.find(end)) + "#### prometheus\n" +
           new_lines(shown_as("prometheus", subject, 1), openmetrics);
}

std::string read_file(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}
} // namespace

TEST(console, shows_every_subject_in_every_form) {
    for (const tools::subject* what : tools::all_subjects()) {
        const std::string shown = in_all_forms(what->name);
        const std::string path = std::string(TEST_DATA "/console/") + what->name + ".txt";
        if (std::getenv("MONCL_REWRITE_GOLDEN") != nullptr)
            std::ofstream(path) << shown;
        EXPECT_EQ(shown, read_file(path)) << what->name;
    }
}

TEST(console, shows_the_same_in_csv_as_in_json) {
    for (const tools::subject* what : tools::all_subjects()) {
        const std::string json = shown_as("json", what->name, 3);
        const auto sample = nlohmann::ordered_json::parse(json.substr(0, json.find('\n')));
        std::string heading = "time,host";
        for (const auto& field : sample["rows"][0].items())
            heading += "," + field.key();
        std::string expected = heading + "\r\n";
        for (const auto& row : sample["rows"]) {
            std::string line = sample["time"].get<std::string>() + ",board";
            for (const auto& value : row)
                line += "," + (value.is_string() ? value.get<std::string>()
                               : value.is_null() ? ""
                                                 : value.dump());
            expected += line + "\r\n";
        }
        EXPECT_EQ(shown_as("csv", what->name, 3).substr(0, expected.size()), expected);
    }
}
