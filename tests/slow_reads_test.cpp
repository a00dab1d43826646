// Reads that hang or come late.
#include "slow_reads.h"

#include "child_process.h"

#include <atomic>
#include <fstream>
#include <sys/stat.h>
#include <thread>

using monsrv::slow_reads;

TEST(slow_reads, file_that_hangs_costs_the_others_nothing) {
    const file_tree tree;
    tree.write("/fast", "1\n");
    ASSERT_EQ(mkfifo((tree.root() + "/fifo").c_str(), 0600), 0);
    auto reads = std::make_unique<slow_reads>(4);
    std::map<std::string, slow_reads::work> wanted{
        {"throws", []() -> slow_reads::outcome { throw std::runtime_error("x"); }}};
    for (const char* name : {"fast", "fifo", "missing"})
        wanted[name] = [path = tree.root() + "/" + name] { return slow_reads::read_file(path); };
    for (int i = 0; i < 2; ++i) {
        auto got = reads->run(wanted);
        while (got["fast"].result != 0 || got["throws"].result == -ETIMEDOUT)
            got = reads->run(wanted); // the machine is busy
        EXPECT_EQ(got["fast"].bytes, "1\n");
        EXPECT_EQ(got["fifo"].result, -ETIMEDOUT);
        EXPECT_EQ(got["missing"].result, -ENOENT);
        EXPECT_EQ(got["throws"].result, -EIO);
    }
    reads.reset(); // with the read still hanging
    std::ofstream(tree.root() + "/fifo") << "late";
}

TEST(slow_reads, threads_are_bounded_and_a_late_value_serves_while_the_next_read_hangs) {
    std::atomic<int> inside[2]{};
    std::atomic<bool> open[2]{};
    auto hang = [&](int gate) {
        return [&inside = inside[gate], &open = open[gate], value = std::to_string(gate)] {
            for (++inside; !open;)
                usleep(1000);
            return slow_reads::outcome{0, value};
        };
    };
    slow_reads reads(2);
    do
        EXPECT_EQ(reads.run({{"a", hang(0)}, {"b", hang(0)}, {"c", hang(0)}})["c"].result,
                  -ETIMEDOUT);
    while (inside[0] < 2);
    EXPECT_EQ(inside[0], 2);
    open[0] = true;
    // The first may still be on its way out; then a run does not start the second.
    while (inside[1] == 0)
        reads.run({{"a", hang(1)}});
    EXPECT_EQ(reads.run({{"a", hang(1)}})["a"].bytes, "0");
    open[1] = true;
    for (const char* key : {"c", "d"}) // the threads are free again
        while (reads.run({{key, hang(1)}})[key].bytes != "1")
            std::this_thread::yield();
}
