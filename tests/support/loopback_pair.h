// A TCP connection of the test process with itself.
#ifndef MONCL_TESTS_LOOPBACK_PAIR_H
#define MONCL_TESTS_LOOPBACK_PAIR_H

#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

/// Both ends are open for as long as this lives.
class loopback_pair {
public:
    loopback_pair() {
        const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        listen(listener, 1);
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
        near_end_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        connect(near_end_, reinterpret_cast<sockaddr*>(&address), size);
        far_end_ = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        close(listener);
    }
    ~loopback_pair() {
        close(near_end_);
        close(far_end_);
    }
    loopback_pair(const loopback_pair&) = delete;
    loopback_pair& operator=(const loopback_pair&) = delete;

    /// Sends @p count bytes from one end to the other, 50000 at a time.
    /// @return whether all arrived
    bool carry(std::size_t count) const {
        std::string part(50000, 'x');
        bool all = true;
        for (; count > 0 && all; count -= part.size())
            all = send(near_end_, part.data(), part.size(), 0) == 50000 &&
                  recv(far_end_, part.data(), part.size(), MSG_WAITALL) == 50000;
        return all;
    }

private:
    int near_end_;
    int far_end_;
};

#endif
