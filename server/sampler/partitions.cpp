// Sizes of mounted file systems, by device or mount point.
#include "sampler.h"

#include "slow_reads.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace monsrv {
namespace {

constexpr std::size_t most_partitions = (answer_payload_max - 1) / sizeof(part_info);

struct mount {
    std::string source; // /dev/vda1, or whatever else is mounted
    std::string point;
};

// The kernel writes blanks, tabs, line ends and backslashes of a path as \ooo.
std::string unescape(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto digit = [&](std::size_t at) { return text[i + at] - '0'; };
        const auto is_octal = [&](std::size_t at) { return digit(at) >= 0 && digit(at) <= 7; };
        if (text[i] == '\\' && i + 3 < text.size() && is_octal(1) && is_octal(2) && is_octal(3)) {
            plain.push_back(static_cast<char>(digit(1) * 64 + digit(2) * 8 + digit(3)));
            i += 3;
        } else {
            plain.push_back(text[i]);
        }
    }
    return plain;
}

// What is mounted; of several at one point only the last, which hides the others.
std::vector<mount> read_mounts(const std::string& text) {
    std::vector<mount> mounts;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        mount m;
        if (std::istringstream(line) >> m.source >> m.point)
            mounts.push_back({unescape(m.source), unescape(m.point)});
    }
    std::set<std::string> seen;
    std::vector<mount> visible;
    for (auto it = mounts.rbegin(); it != mounts.rend(); ++it)
        if (seen.insert(it->point).second)
            visible.push_back(*it);
    std::reverse(visible.begin(), visible.end());
    return visible;
}

std::string base_name(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// A name is a mount point, a device with its folder, or a device alone.
const mount* find_mount(const std::vector<mount>& mounts, const std::string& name) {
    const auto first = [&mounts](const auto& matches) -> const mount* {
        const auto found = std::find_if(mounts.begin(), mounts.end(), matches);
        return found == mounts.end() ? nullptr : &*found;
    };
    if (name.find('/') == name.npos)
        return first([&](const mount& m) {
            return m.source.rfind("/dev/", 0) == 0 && base_name(m.source) == name;
        });
    const std::string path =
        name.size() > 1 && name.back() == '/' ? name.substr(0, name.size() - 1) : name;
    const mount* found = first([&](const mount& m) { return m.point == path; });
    return found != nullptr ? found : first([&](const mount& m) { return m.source == path; });
}

slow_reads::outcome measure(const std::string& path) {
    struct statvfs size {};
    if (statvfs(path.c_str(), &size) == -1)
        return {-errno, {}};
    part_info info{};
    info.f_bavail = size.f_bavail;
    info.f_blocks = size.f_blocks;
    info.f_frsize = size.f_frsize;
    info.blocks_used = size.f_blocks - size.f_bfree;
    return {0, std::string(reinterpret_cast<const char*>(&info), sizeof info)};
}

/// Measures file systems. One may be on a server or disk that does not answer, so each is measured
/// in a thread apart from the one that answers.
class partitions {
public:
    explicit partitions(const host& env) : env_(env) {}

    int sample(const request& asked, reply& answer) {
        std::string text;
        if (const int error = env_.read("/proc/mounts", text); error < 0)
            return error;
        const std::vector<mount> mounts = read_mounts(text);
        std::vector<std::pair<std::string, const mount*>> chosen = choose(asked, mounts);
        std::map<std::string, slow_reads::work> wanted;
        for (const auto& each : chosen)
            wanted[each.second->point] = [path = env_.path(each.second->point)] {
                return measure(path);
            };
        const auto sizes = reads_.run(wanted);

        std::vector<part_info> records;
        for (const auto& [name, m] : chosen) {
            const slow_reads::outcome& size = sizes.at(m->point);
            if (size.result < 0)
                continue;
            part_info info;
            std::memcpy(&info, size.bytes.data(), sizeof info);
            name.copy(info.part_name, sizeof info.part_name - 1);
            records.push_back(info);
        }
        answer.add_counted(records);
        return 0;
    }

private:
    using named_mounts = std::vector<std::pair<std::string, const mount*>>;

    // The count byte before the names wraps at 256, so it is ignored.
    named_mounts choose(const request& asked, const std::vector<mount>& mounts) const {
        const auto* start = reinterpret_cast<const char*>(asked.payload);
        std::istringstream names(asked.size < 1 ? "" : std::string(start + 1, asked.size - 1));
        named_mounts chosen;
        bool any = false;
        for (std::string name; names >> name; any = true)
            if (const mount* m = find_mount(mounts, unescape(name)); m != nullptr)
                chosen.emplace_back(unescape(name), m);
        if (!any)
            chosen = all_devices(mounts);
        chosen.resize(std::min(chosen.size(), most_partitions));
        return chosen;
    }

    // Lists each device once, although it may be mounted at many places.
    named_mounts all_devices(const std::vector<mount>& mounts) const {
        named_mounts chosen;
        std::set<std::string> seen;
        for (const mount& m : mounts)
            if (is_block_device(m.source) && seen.insert(m.source).second)
                chosen.emplace_back(base_name(m.source), &m);
        return chosen;
    }

    // A tree of files holds no devices, so there the name decides.
    bool is_block_device(const std::string& source) const {
        struct stat status {};
        return source.rfind("/dev/", 0) == 0 &&
               (!env_.is_live() || stat(source.c_str(), &status) == -1 || S_ISBLK(status.st_mode));
    }

    const host& env_;
    slow_reads reads_{32};
};

void install(sampler_table& table, const host& env) {
    auto all = std::make_shared<partitions>(env);
    table.on_slow(
        table.add_slow_thread(), peripheral_command, peripheral_request::partitions,
        [all](const request& asked, reply& answer) { return all->sample(asked, answer); },
        sharing::among_clients);
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
