// Every subject in every form, over one simulated server, compared with tests/data/console.
// MONCL_REWRITE_GOLDEN=1 rewrites the files; read what has changed before it is committed.
#include "board_of_files.h"
#include "console_run.h"

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

// The first report in each form; of the older text form only what OpenMetrics does not have.
std::string in_all_forms(const char* subject) {
    std::string shown, openmetrics;
    for (const char* form : {"table", "json", "csv", "openmetrics", "prometheus"}) {
        const board_of_files board;
        console_run run({board.port()}, {subject}, form);
        run.chosen.pids = {1234, 1300};
        run.rows_max = 2;
        run.run();
        std::string text = run.out + run.err;
        if (run.form == "prometheus")
            text = new_lines(text, openmetrics);
        openmetrics = text;
        shown += "#### " + run.form + "\n" + text;
    }
    return shown;
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
