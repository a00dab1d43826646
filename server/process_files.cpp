// Reading the kernel's files about one process.
#include "process_files.h"

#include "text_number.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace monsrv {

namespace {
// Blanks and control characters: what ends a word, for a stream and for a terminal.
bool ends_word(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= ' ' || byte == 0x7F;
}

// The name itself may hold parentheses: it ends at the last one of the line.
void make_name_one_word(std::string& line) {
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    if (open < close && close != line.npos)
        std::replace_if(line.begin() + static_cast<std::ptrdiff_t>(open),
                        line.begin() + static_cast<std::ptrdiff_t>(close), ends_word, '_');
}

// Reads a file that the kernel writes as one record: a short read is its end.
int read_record(int folder, const char* path, std::string& text) {
    text.clear();
    const descriptor file(openat(folder, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.fd == -1)
        return -errno;
    char part[4096];
    ssize_t size = 0;
    do {
        size = read(file.fd, part, sizeof part);
        if (size > 0)
            text.append(part, static_cast<std::size_t>(size));
    } while ((size == sizeof part && text.size() < host::file_limit) ||
             (size == -1 && errno == EINTR));
    if (size != -1)
        return 0;
    text.clear();
    return -errno;
}

int open_folder(const std::string& path) {
    const int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return folder == -1 ? -errno : folder;
}
} // namespace

process_folder::process_folder(const host& env, std::int32_t pid)
    : folder_(pid > 0 ? open_folder(env.path("/proc/" + std::to_string(pid))) : -ESRCH) {
    if (folder_.fd == -ENOENT || folder_.fd == -ENOTDIR)
        folder_.fd = -ESRCH;
}

int process_folder::read_stat(std::string& text) const {
    text.clear();
    const int error = folder_.fd < 0 ? folder_.fd : read_record(folder_.fd, "stat", text);
    make_name_one_word(text);
    return error;
}

all_processes::all_processes(const host& env) : folder_(open_folder(env.path("/proc"))) {}

int all_processes::read_stat(std::int32_t pid, std::string& text) const {
    const int error = read_file_of(pid, "stat", text);
    make_name_one_word(text);
    return error;
}

int all_processes::read_io(std::int32_t pid, std::string& text) const {
    return read_file_of(pid, "io", text);
}

int all_processes::open_descriptors(std::int32_t pid) const {
    char path[32];
    std::snprintf(path, sizeof path, "%d/fd", pid);
    const int folder = openat(folder_.fd, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return folder == -1 ? -errno : folder;
}

int all_processes::read_file_of(std::int32_t pid, const char* name, std::string& text) const {
    text.clear();
    if (pid <= 0 || folder_.fd == -ENOENT)
        return -ESRCH;
    if (folder_.fd < 0)
        return folder_.fd;
    char path[32];
    std::snprintf(path, sizeof path, "%d/%s", pid, name);
    const int error = read_record(folder_.fd, path, text);
    if (error != -ENOENT)
        return error;
    // Not every kernel has every file; a process that ended has none.
    *std::strchr(path, '/') = '\0';
    return faccessat(folder_.fd, path, F_OK, 0) == -1 ? -ESRCH : error;
}

int all_processes::list(std::size_t limit, std::vector<std::int32_t>& pids) const {
    pids.clear();
    if (folder_.fd < 0)
        return folder_.fd;
    const int again = openat(folder_.fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (again == -1)
        return -errno;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(fdopendir(again), closedir);
    if (!folder) {
        close(again);
        return -ENOMEM;
    }
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
    return 0;
}

void hide_addresses(std::string& line) {
    // By position in the kernel's line: startcode to kstkeip, wchan, start_data to env_end.
    const auto is_address = [](int field) {
        return (field >= 26 && field <= 30) || field == 35 || (field >= 45 && field <= 51);
    };
    const std::size_t close = line.rfind(')');
    if (close == line.npos)
        return;
    std::string hidden = line.substr(0, close + 1);
    std::string_view rest = std::string_view(line).substr(close + 1);
    constexpr std::string_view blanks = " \n";
    for (int field = 3; !rest.empty(); ++field) {
        const std::size_t start = std::min(rest.find_first_not_of(blanks), rest.size());
        const std::size_t end = std::min(rest.find_first_of(blanks, start), rest.size());
        hidden += rest.substr(0, start);
        hidden += is_address(field) && start < end ? "0" : rest.substr(start, end - start);
        rest.remove_prefix(end);
    }
    line = std::move(hidden);
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
