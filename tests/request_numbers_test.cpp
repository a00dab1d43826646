// The requests that the server answers, against those that the protocol page lists.
#include "sampler.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

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
    std::ostringstream page;
    page << std::ifstream(PROTOCOL_PAGE).rdbuf();
    std::string queries = page.str().substr(page.str().find("\n## Queries\n") + 1);
    queries.resize(queries.find("\n## "));
    numbers all;
    int command = 0;
    const std::regex row("\n\\| (0xAE\\w\\w)? ?\\| ([^|]+) \\|");
    for (std::sregex_iterator it(queries.begin(), queries.end(), row), end; it != end; ++it) {
        if ((*it)[1].matched)
            command = std::stoi((*it)[1], nullptr, 16);
        add_sub_commands(command, (*it)[2], all);
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
