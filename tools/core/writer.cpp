// Writing all of a text.
#include "writer.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace tools {

void writer::flush() {
    if (fd_ == -1)
        return;
    std::string_view rest = text;
    while (!rest.empty() && error_ == 0) {
        const ssize_t n = write(fd_, rest.data(), rest.size());
        if (n >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(n));
        } else if (errno == EAGAIN) { // somebody made the descriptor non-blocking
            pollfd item{fd_, POLLOUT, 0};
            poll(&item, 1, -1);
        } else if (errno != EINTR) {
            error_ = errno;
        }
    }
    text.clear();
}

int writer::error() const {
    return error_ == EPIPE ? 0 : error_;
}

} // namespace tools
