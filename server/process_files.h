// Reads the kernel's files about one process, for all samplers.
#ifndef MONSRV_PROCESS_FILES_H
#define MONSRV_PROCESS_FILES_H

#include "descriptor.h"
#include "host.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace monsrv {

/// The folder of one process, kept open. It still belongs to that process if the id is used again.
class process_folder {
public:
    process_folder(const host& env, std::int32_t pid);

    /// The open folder, or a negated errno: -ESRCH if there is no such process.
    int number() const { return folder_.fd; }
    /// As `all_processes::read_stat`.
    int read_stat(std::string& text) const;

private:
    descriptor folder_;
};

/// The folder /proc, kept open: files of many processes are opened relative to it.
class all_processes {
public:
    explicit all_processes(const host& env);

    /// Lists the process ids there are in @p pids, in ascending order, at most @p limit.
    /// @return 0, or a negated errno
    int list(std::size_t limit, std::vector<std::int32_t>& pids) const;
    /// The text of /proc/PID/stat with the command name made one word: each blank or control
    /// character in it becomes '_', for clients read blank-separated fields.
    /// @return 0, or a negated errno: -ESRCH if there is no process @p pid
    int read_stat(std::int32_t pid, std::string& text) const;
    /// The text of /proc/PID/io.
    /// @return 0, or a negated errno: -ESRCH if there is no process @p pid, -EACCES if it may not
    ///         be read, -ENOENT if the kernel keeps no accounts
    int read_io(std::int32_t pid, std::string& text) const;
    /// Opens the folder /proc/PID/fd.
    /// @return the descriptor, which the caller closes, or a negated errno
    int open_descriptors(std::int32_t pid) const;

private:
    int read_file_of(std::int32_t pid, const char* name, std::string& text) const;

    descriptor folder_;
};

/// Writes 0 for each address in @p line, a text of `all_processes::read_stat`: the places of code,
/// data, stack and arguments, of the next instruction and of where the process waits. They help to
/// attack a process, and the kernel gives them to nobody else either.
void hide_addresses(std::string& line);

/// Some of a status line's fields.
struct process_status {
    std::string_view comm; ///< without its parentheses; a part of the line
    char state = 0;
    std::int32_t ppid = 0;
    std::uint64_t run_ticks = 0; ///< user and system time, in clock ticks
    std::int64_t priority = 0;
    std::uint64_t start_ticks = 0; ///< clock ticks from boot to the process's start
    std::int64_t rss_pages = 0;
    std::int32_t processor = 0;
};

/// Reads @p line, a text of `all_processes::read_stat`.
/// @return whether all fields were there
bool parse_process_stat(std::string_view line, process_status& status);

/// Bytes read from and written to storage, of a text of `all_processes::read_io`; 0 for
/// one that is not well formed.
std::uint64_t storage_bytes(std::string_view text);

} // namespace monsrv

#endif
