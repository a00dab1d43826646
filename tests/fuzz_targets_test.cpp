// Every fuzz target on its kept inputs, and on random changes of them. A target ends the process at
// a fault.
#include "file_text.h"
#include "fuzz_support.h"
#include "log_capture.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <random>

namespace {
using inputs = std::vector<std::string>;

inputs kept_inputs(const std::string& target) {
    inputs all;
    for (const char* folder : {FUZZ_INPUTS "/", FUZZ_REGRESSIONS "/"}) {
        if (!std::filesystem::exists(folder + target))
            continue;
        for (const auto& file : std::filesystem::directory_iterator(folder + target))
            all.push_back(file_text(file.path()));
    }
    return all;
}

// One of @p all, some bytes of it changed, cut off at the end, or followed by another one.
std::string changed(const inputs& all, std::mt19937& random) {
    std::string bytes = all[random() % all.size()];
    for (auto changes = random() % 8; changes > 0 && !bytes.empty(); --changes)
        bytes[random() % bytes.size()] = static_cast<char>(random());
    if (random() % 4 == 0)
        bytes.resize(random() % (bytes.size() + 1));
    if (random() % 4 == 0)
        bytes += all[random() % all.size()];
    return bytes;
}

void run(const fuzz::target& target, const std::string& bytes) {
    target.run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

struct fuzz_target : testing::TestWithParam<const fuzz::target*> {
    ~fuzz_target() override { std::cout.flags(flags_before_); }

private:
    std::ios::fmtflags flags_before_ = std::cout.flags();
    log_capture log_;
    cout_capture printed_;
};
} // namespace

TEST_P(fuzz_target, takes_any_input) {
    const inputs kept = kept_inputs(GetParam()->name);
    ASSERT_FALSE(kept.empty());
    for (const std::string& bytes : kept)
        run(*GetParam(), bytes);
    std::mt19937 random(20261121);
    for (int i = 0; i < 300; ++i)
        run(*GetParam(), changed(kept, random));
}

INSTANTIATE_TEST_SUITE_P(each, fuzz_target, testing::ValuesIn(fuzz::all_targets()),
                         [](const auto& tested) { return tested.param->name; });
