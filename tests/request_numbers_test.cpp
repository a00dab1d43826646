// The requests that the server answers, against those that the protocol page lists.
#include "file_text.h"
#include "patterns.h"
#include "sampler.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {
using numbers = std::vector<std::pair<int, int>>;

// The first two columns of the table of queries; an empty command repeats the one above it.
numbers read_page() {
    const std::string page = file_text(PROTOCOL_PAGE);
    std::string queries = page.substr(page.find("\n## Queries\n") + 1);
    queries.resize(queries.find("\n## "));
    numbers all;
    int command = 0;
    for (const auto& row : groups_of_matches(queries, "\n\\| (0xAE\\w\\w)? ?\\| ([^|]+) \\|")) {
        if (!row[0].empty())
            command = std::stoi(row[0], nullptr, 16);
        // Such as "1 to 8" or "3, 4 / 5, 6".
        for (const auto& range : groups_of_matches(row[1], "(\\d+)(?: to (\\d+))?")) {
            const int first = std::stoi(range[0]);
            const int last = range[1].empty() ? first : std::stoi(range[1]);
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
