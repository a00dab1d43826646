// Reads that hang or come late.
#include "slow_reads.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

using monsrv::slow_reads;

TEST(slow_reads, threads_are_bounded_and_a_late_value_serves_while_the_next_read_hangs) {
    static std::atomic<int> inside[2]; // a thread may outlive the test
    static std::atomic<bool> open[2];
    auto hang = [](int gate) {
        return [gate] {
            for (++inside[gate]; !open[gate];)
                usleep(1000);
            return slow_reads::outcome{0, std::to_string(gate)};
        };
    };
    slow_reads reads(2);
    for (int run = 0; run < 3 || inside[0] < 2; ++run)
        EXPECT_EQ(reads.run({{"a", hang(0)}, {"b", hang(0)}, {"c", hang(0)}})["c"].result,
                  -ETIMEDOUT);
    EXPECT_EQ(inside[0], 2);
    open[0] = true;
    // The first read may still be ending; a run does not start the second before.
    while (inside[1] == 0)
        reads.run({{"a", hang(1)}});
    EXPECT_EQ(reads.run({{"a", hang(1)}})["a"].bytes, "0");
    open[1] = true;
    for (const char* key : {"c", "d"}) // the threads are free again
        while (reads.run({{key, hang(1)}})[key].bytes != "1")
            std::this_thread::yield();
    EXPECT_EQ(inside[0], 3) << "what hangs is not asked for again";
}
