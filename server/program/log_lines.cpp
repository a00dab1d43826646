// Writing the log.
#include "log_lines.h"

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace monsrv {

namespace {
// JOURNAL_STREAM holds device and inode of the stream that leads to the journal. A parent may have
// redirected standard error since it was set.
bool find_journal() {
    const char* text = std::getenv("JOURNAL_STREAM");
    unsigned long long device = 0;
    unsigned long long inode = 0;
    struct stat status {};
    return text != nullptr && std::sscanf(text, "%llu:%llu", &device, &inode) == 2 &&
           fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}
} // namespace

bool logs_to_journal() {
    static const bool found = find_journal();
    return found;
}

void log_line(log_level level, const std::string& text) {
    const std::string line =
        (logs_to_journal() ? "<" + std::to_string(static_cast<int>(level)) + ">" : "monsrv: ") +
        text + "\n";
    [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, line.data(), line.size());
}

} // namespace monsrv
