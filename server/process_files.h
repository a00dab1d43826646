// What the kernel tells about one process, for every sampler that asks.
#ifndef MONSRV_PROCESS_FILES_H
#define MONSRV_PROCESS_FILES_H

#include "host.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace monsrv {

/// The text of /proc/PID/stat with the command name made one word: each blank or control character
/// in it becomes '_', for clients read blank-separated fields.
/// @return 0, or a negated errno: -ESRCH if there is no process @p pid
int read_process_stat(const host& env, std::int32_t pid, std::string& text);

/// The text of /proc/PID/io.
/// @return 0, or a negated errno: -ESRCH if there is no process @p pid, -EACCES if it may not be
///         read, -ENOENT if the kernel keeps no accounts
int read_process_io(const host& env, std::int32_t pid, std::string& text);

/// The processes there are, in ascending order, at most @p limit.
std::vector<std::int32_t> list_processes(const host& env, std::size_t limit);

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

/// Reads @p line, a text of `read_process_stat`.
/// @return whether all fields were there
bool parse_process_stat(std::string_view line, process_status& status);

/// Bytes read from and written to storage, of a text of `read_process_io`; 0 for one that is not
/// well formed.
std::uint64_t storage_bytes(std::string_view text);

} // namespace monsrv

#endif
