// The requests that the server answers, against those that the protocol page lists.
#include "sampler.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>

namespace {
using numbers = std::vector<std::pair<int, int>>;

// "1 to 8", "3, 4 / 5, 6"
void add_sub_commands(int command, const std::string& cell, numbers& all) {
    const std::regex range("(\\d+)(?: to (\\d+))?");
    for (std::sregex_iterator it(cell.begin(), cell.end(), range), end; it != end; ++it) {
        const int first = std::stoi((*it)[1]);
        const int last = (*it)[2].matched ? std::stoi((*it)[2]) : first;
        for (int sub_command = first; sub_command <= last; ++sub_command)
            all.emplace_back(command, sub_command);
    }
}

// The first two columns of the table of queries; an empty command repeats the one above it.
numbers read_page() {
    numbers all;
    std::ifstream page(PROTOCOL_PAGE);
    const std::regex row("\\| (0xAE\\w\\w)? ?\\| ([^|]+) \\|.*");
    bool in_queries = false;
    int command = 0;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("## ", 0) == 0)
            in_queries = line == "## Queries";
        std::smatch cells;
        if (!in_queries || !std::regex_match(line, cells, row))
            continue;
        if (cells[1].matched)
            command = std::stoi(cells[1], nullptr, 16);
        add_sub_commands(command, cells[2], all);
    }
    std::sort(all.begin(), all.end());
    return all;
}
} // namespace

TEST(request_numbers, server_answers_what_the_protocol_page_lists) {
    const monsrv::host env("/");
    monsrv::sampler_table table;
    monsrv::install_samplers(table, env);
    EXPECT_EQ(table.requests(), read_page());
}
