// Reads that hang or come late.
#include "slow_reads.h"

#include "child_process.h"

#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {
using monsrv::slow_reads;

/// Work that counts itself and goes on until it is let go.
struct gate {
    std::atomic<int> inside{0};
    std::atomic<bool> open{false};

    static slow_reads::work work(std::shared_ptr<gate> g, const std::string& value) {
        return [g = std::move(g), value] {
            ++g->inside;
            while (!g->open)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            --g->inside;
            return slow_reads::outcome{0, value};
        };
    }
};

TEST(slow_reads, file_that_hangs_costs_the_others_nothing) {
    const file_tree tree;
    tree.write("/fast", "1\n");
    const std::string fifo = tree.root() + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    auto reads = std::make_unique<slow_reads>(4);
    const auto read = [](const std::string& path) {
        return [path] { return slow_reads::read_file(path); };
    };
    const std::map<std::string, slow_reads::work> wanted{
        {"fast", read(tree.root() + "/fast")},
        {"fifo", read(fifo)},
        {"missing", read(tree.root() + "/missing")},
        {"throws", []() -> slow_reads::outcome { throw std::runtime_error("x"); }}};
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
    std::ofstream(fifo) << "late";
}

TEST(slow_reads, late_value_serves_the_next_run) {
    slow_reads reads(2);
    const auto first = std::make_shared<gate>();
    EXPECT_EQ(reads.run({{"a", gate::work(first, "7")}})["a"].result, -ETIMEDOUT);
    first->open = true;
    const auto second = std::make_shared<gate>();
    // The first may still be on its way out; then this run does not start the second.
    while (second->inside == 0)
        reads.run({{"a", gate::work(second, "8")}});
    const auto got = reads.run({{"a", gate::work(second, "9")}})["a"];
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.bytes, "7");
    second->open = true;
}

TEST(slow_reads, threads_are_bounded_and_reused) {
    slow_reads reads(2);
    const auto stuck = std::make_shared<gate>();
    do {
        const auto got = reads.run({{"a", gate::work(stuck, "1")},
                                    {"b", gate::work(stuck, "2")},
                                    {"c", gate::work(stuck, "3")}});
        EXPECT_EQ(got.at("c").result, -ETIMEDOUT);
    } while (stuck->inside < 2);
    EXPECT_EQ(stuck->inside, 2);
    stuck->open = true;
    for (const char* key : {"c", "d"})
        while (reads.run({{key, gate::work(stuck, "4")}})[key].result != 0)
            std::this_thread::yield();
}
} // namespace
