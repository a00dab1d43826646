// The requests that the server answers, against those that the protocol page lists.
#include "sampler.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

namespace {
using numbers = std::vector<std::pair<int, int>>;

// The first two columns of the table of queries; an empty command repeats the one above it.
numbers read_page() {
    std::ostringstream page;
    page << std::ifstream(PROTOCOL_PAGE).rdbuf();
    std::string queries = page.str().substr(page.str().find("\n## Queries\n") + 1);
    queries.resize(queries.find("\n## "));
    numbers all;
    int command = 0;
    const std::regex range("(\\d+)(?: to (\\d+))?"); // "1 to 8", "3, 4 / 5, 6"
    const std::regex row("\n\\| (0xAE\\w\\w)? ?\\| ([^|]+) \\|");
    for (std::sregex_iterator it(queries.begin(), queries.end(), row), end; it != end; ++it) {
        if ((*it)[1].matched)
            command = std::stoi((*it)[1], nullptr, 16);
        const std::string cell = (*it)[2];
        for (std::sregex_iterator part(cell.begin(), cell.end(), range); part != end; ++part) {
            const int first = std::stoi((*part)[1]);
            const int last = (*part)[2].matched ? std::stoi((*part)[2]) : first;
            for (int sub_command = first; sub_command <= last; ++sub_command)
                all.emplace_back(command, sub_command);
        }
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
