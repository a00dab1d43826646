// Reading the files of the machine being sampled.
#include "host.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace monsrv {

namespace {
// The kernel hands out many of its tables a page or a record at a time, hence the loop.
int read_all(int fd, std::string& text) {
    text.clear();
    char part[16384];
    while (text.size() < host::file_limit) {
        const std::size_t wanted = std::min(sizeof part, host::file_limit - text.size());
        const ssize_t n = pread(fd, part, wanted, static_cast<off_t>(text.size()));
        if (n == -1 && errno == EINTR)
            continue;
        if (n == -1) {
            const int error = -errno;
            text.clear();
            return error;
        }
        if (n == 0)
            break;
        text.append(part, static_cast<std::size_t>(n));
    }
    return 0;
}
} // namespace

host::host(std::string root, std::optional<simulated_board> board)
    : root_(std::move(root)), board_(board) {
    while (!root_.empty() && root_.back() == '/')
        root_.pop_back();
}

std::string host::path(const std::string& path) const {
    return root_ + path;
}

int host::read(const std::string& path, std::string& text) const {
    text.clear();
    const int fd = open((root_ + path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd == -1)
        return -errno;
    const int result = read_all(fd, text);
    close(fd);
    return result;
}

int host::read_again(const std::string& path, std::string& text) const {
    const int fd = is_live() ? file_cache::open_and_cache(path) : -1;
    return fd < 0 ? read(path, text) : read_all(fd, text);
}

} // namespace monsrv
