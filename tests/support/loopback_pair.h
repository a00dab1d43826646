// A TCP connection of the test process with itself.
#ifndef MONCL_TESTS_LOOPBACK_PAIR_H
#define MONCL_TESTS_LOOPBACK_PAIR_H

#include <netinet/in.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

/// Both ends are open for as long as this lives.
class loopback_pair {
public:
    loopback_pair() {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        listen(ends_[0], 1);
        getsockname(ends_[0], any, &size);
        connect(ends_[1], any, size);
        close(std::exchange(ends_[0], accept4(ends_[0], nullptr, nullptr, SOCK_CLOEXEC)));
    }
    ~loopback_pair() {
        for (int end : ends_)
            close(end);
    }
    /// Sends 50000 bytes from one end to the other.
    /// @return whether all arrived and were acknowledged
    bool carry_50000() const {
        std::string text(50000, 'x');
        int waiting = 1;
        if (send(ends_[0], text.data(), text.size(), 0) != 50000 ||
            recv(ends_[1], text.data(), text.size(), MSG_WAITALL) != 50000)
            return false;
        for (int turn = 0; waiting != 0 && turn < 4000; ++turn) {
            ioctl(ends_[0], TIOCOUTQ, &waiting);
            usleep(1000);
        }
        return waiting == 0;
    }
    /// Lets the end that sent say that it sends no more.
    void end_sending() const { shutdown(ends_[0], SHUT_WR); }

private:
    int ends_[2] = {socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0),
                    socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

#endif
