// When clients that keep asking are expected.
#include "request_pace.h"

#include <gtest/gtest.h>
#include <vector>

using monsrv::request_pace;
using std::chrono::milliseconds;

TEST(request_pace, expects_who_keeps_a_pace_and_nobody_else) {
    const struct {
        const char* name;
        std::vector<int> asked; // ms, by one client
        int now, after;         // ms
        int expected;           // ms; -1 for none
    } cases[] = {{"one request shows no pace", {0}, 10, 10, -1},
                 {"nor do two", {0, 1000}, 1010, 1010, -1},
                 {"three at equal intervals", {0, 1000, 2000}, 2010, 2010, 3000},
                 {"the interval is the latest", {0, 1000, 2200}, 2210, 2210, 3400},
                 {"beyond the next request", {0, 1000, 2000}, 2010, 3001, 4000},
                 {"just then", {0, 1000, 2000}, 2010, 3000, 3000},
                 {"another interval is no pace", {0, 1000, 1300}, 1310, 1310, -1},
                 {"until it is kept", {0, 1000, 1300, 1600}, 1610, 1610, 1900},
                 {"late", {0, 1000, 2000}, 3290, 3290, 4000},
                 {"too late", {0, 1000, 2000}, 3310, 3310, -1},
                 {"as fast as possible", {0, 0, 0}, 0, 100, 100}};
    for (const auto& each : cases) {
        const auto at = [start = request_pace::clock::now()](int ms) {
            return start + milliseconds(ms);
        };
        request_pace pace;
        for (const int ms : each.asked)
            pace.asked(1, at(ms));
        const auto next = pace.next(at(each.now), at(each.after));
        EXPECT_EQ(next ? (*next - at(0)) / milliseconds(1) : -1, each.expected) << each.name;
    }
}
