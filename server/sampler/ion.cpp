// Bytes in use in each ion heap. Few kernels have any.
#include "sampler.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace monsrv {
namespace {

// Finds the number of the line "total N" in a heap's file; its other lines name clients and
// orphans.
bool find_total(const std::string& text, std::uint64_t& total) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        if (words >> word && word == "total" && words >> total)
            return true;
    }
    return false;
}

int sample(const host& env, reply& answer) {
    const std::string folder = "/sys/kernel/debug/ion/heaps/";
    std::error_code error;
    std::error_code ignored;
    std::vector<std::string> names;
    for (std::filesystem::directory_iterator it(env.path(folder), error), end; !error && it != end;
         it.increment(error))
        names.push_back(it->path().filename());
    // The folder may be unreadable; /dev/ion shows whether there are heaps.
    if (error && std::filesystem::exists(env.path("/dev/ion"), ignored))
        return -error.value();
    if (error) {
        answer.add_counted(env.board() != nullptr ? env.board()->now().heaps
                                                  : std::vector<ion_info>());
        return 0;
    }
    std::sort(names.begin(), names.end());

    std::vector<ion_info> heaps;
    for (const std::string& name : names) {
        std::string text;
        ion_info heap{};
        if (env.read(folder + name, text) < 0 || !find_total(text, heap.used))
            continue;
        name.copy(heap.ion_name, sizeof heap.ion_name - 1);
        heaps.push_back(heap);
    }
    answer.add_counted(heaps);
    return 0;
}

void install(sampler_table& table, const host& env) {
    table.on(peripheral_command, peripheral_request::ion_heaps,
             [&env](const request&, reply& answer) { return sample(env, answer); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
