// Every subject in every form, over one simulated server, compared with tests/data/console.
// MONCL_REWRITE_GOLDEN=1 rewrites the files; read what has changed before it is committed.
#include "board_of_files.h"
#include "console_run.h"
#include "file_text.h"

#include <cstdlib>
#include <fstream>

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

// Every form of the first report. Of CSV and OpenMetrics one row, and of the older text form only
// what OpenMetrics does not have.
std::string in_all_forms(const char* subject) {
    const std::string openmetrics = shown_as("openmetrics", subject, 1);
    const std::string end = "# HELP moncl_up Whether the server answered\n"
                            "# TYPE moncl_up gauge\nmoncl_up 1\n# EOF\n";
    EXPECT_NE(openmetrics.find(end), openmetrics.npos) << subject;
    return "#### table\n" + shown_as("table", subject, 3) + "#### json\n" +
           shown_as("json", subject, 3) + "#### csv\n" + shown_as("csv", subject, 1) +
           "#### openmetrics\n" + openmetrics.substr(0, openmetrics.find(end)) +
           "#### prometheus\n" + new_lines(shown_as("prometheus", subject, 1), openmetrics);
}
} // namespace

TEST(console, shows_every_subject_in_every_form) {
    for (const tools::subject* what : tools::all_subjects()) {
        const std::string shown = in_all_forms(what->name);
        const std::string path = std::string(TEST_DATA "/console/") + what->name + ".txt";
        if (std::getenv("MONCL_REWRITE_GOLDEN") != nullptr)
            std::ofstream(path) << shown;
        EXPECT_EQ(shown, file_text(path)) << what->name;
    }
}
