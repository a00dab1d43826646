// Reading the kernel's files about one process.
#include "process_files.h"

#include "text_number.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <memory>
#include <unistd.h>

namespace monsrv {

namespace {
int read_file_of(const host& env, std::int32_t pid, const char* name, std::string& text) {
    text.clear();
    if (pid <= 0)
        return -ESRCH;
    const std::string folder = "/proc/" + std::to_string(pid);
    const int error = env.read(folder + "/" + name, text);
    // Not every kernel has every file; a process that ended has none.
    return error == -ENOENT && access(env.path(folder).c_str(), F_OK) == -1 ? -ESRCH : error;
}

bool ends_word(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= ' ' || byte == 0x7F;
}
} // namespace

int read_process_stat(const host& env, std::int32_t pid, std::string& text) {
    const int error = read_file_of(env, pid, "stat", text);
    // The name itself may hold parentheses: it ends at the last one of the line.
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open < close && close != text.npos)
        std::replace_if(text.begin() + static_cast<std::ptrdiff_t>(open),
                        text.begin() + static_cast<std::ptrdiff_t>(close), ends_word, '_');
    return error;
}

int read_process_io(const host& env, std::int32_t pid, std::string& text) {
    return read_file_of(env, pid, "io", text);
}

std::vector<std::int32_t> list_processes(const host& env, std::size_t limit) {
    std::vector<std::int32_t> pids;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(env.path("/proc").c_str()), closedir);
    if (!folder)
        return pids;
    while (pids.size() < limit) {
        const dirent* entry = readdir(folder.get());
        if (entry == nullptr)
            break;
        const std::string_view name(entry->d_name);
        std::int32_t pid = 0;
        if (name.find_first_not_of("0123456789") == name.npos && text_reader(name).number(pid) &&
            pid > 0)
            pids.push_back(pid);
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

bool parse_process_stat(std::string_view line, process_status& status) {
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    if (open == line.npos || close == line.npos || close < open)
        return false;
    status.comm = line.substr(open + 1, close - open - 1);
    text_reader fields(line.substr(close + 1));
    std::uint64_t user = 0;
    std::uint64_t system = 0;
    fields.character(status.state);
    fields.number(status.ppid);
    fields.skip_words(9); // pgid to cmajflt
    fields.number(user);
    fields.number(system);
    fields.skip_words(2); // cutime, cstime
    fields.number(status.priority);
    fields.skip_words(3); // nice to itrealvalue
    fields.number(status.start_ticks);
    fields.skip_words(1); // vsize
    fields.number(status.rss_pages);
    fields.skip_words(14); // rsslim to exit_signal
    fields.number(status.processor);
    status.run_ticks = user + system;
    return static_cast<bool>(fields);
}

std::uint64_t storage_bytes(std::string_view text) {
    std::uint64_t bytes = 0;
    try {
        for_each_figure(text, [&bytes](std::string_view key, long value) {
            if (key == "read_bytes" || key == "write_bytes")
                bytes += static_cast<std::uint64_t>(value);
        });
    } catch (const std::logic_error&) {
        return 0;
    }
    return bytes;
}

} // namespace monsrv
