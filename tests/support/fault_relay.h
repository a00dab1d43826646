// A relay between a client and a server that damages the bytes of answers on their way.
#ifndef MONCL_TESTS_FAULT_RELAY_H
#define MONCL_TESTS_FAULT_RELAY_H

#include <algorithm>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

/// Passes TCP bytes both ways, one connection at a time, at a loopback port of its own.
class fault_relay {
public:
    /// Changes bytes from the server; may wait. Returns whether the connection stays open after
    /// them.
    using fault = std::function<bool(std::string& bytes)>;

    explicit fault_relay(int server_port) {
        listen(listener_, 8);
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address_), &address_size_);
        port_ = ntohs(std::exchange(address_.sin_port, htons(static_cast<in_port_t>(server_port))));
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        thread_ = std::thread([this] { serve(); });
    }
    ~fault_relay() {
        eventfd_write(stop_event_, 1);
        thread_.join();
        for (int fd : {client_, server_, listener_, stop_event_})
            close(fd);
    }
    fault_relay(const fault_relay&) = delete;
    fault_relay& operator=(const fault_relay&) = delete;

    int port() const { return port_; }
    /// Holds what the server sends from now on until there are @p size bytes, and damages these.
    void damage_next(std::size_t size, fault how) {
        std::lock_guard<std::mutex> guard(lock_);
        size_ = size;
        fault_ = std::move(how);
    }

private:
    static int new_socket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

    void serve() {
        for (;;) {
            pollfd items[] = {{stop_event_, POLLIN, 0},
                              {listener_, POLLIN, 0},
                              {client_, POLLIN, 0},
                              {server_, POLLIN, 0}};
            poll(items, 4, -1);
            if (items[0].revents != 0)
                return;
            const bool next = items[1].revents != 0;
            if (next || (items[2].revents != 0 && !pass(client_, server_)) ||
                (items[3].revents != 0 && !pass(server_, client_))) {
                close(std::exchange(server_, -1));
                close(std::exchange(client_, -1));
                held_.clear();
            }
            if (next) {
                server_ = new_socket();
                connect(server_, reinterpret_cast<sockaddr*>(&address_), address_size_);
                client_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            }
        }
    }

    bool pass(int from, int to) {
        std::string bytes(65536, '\0');
        const ssize_t n = recv(from, bytes.data(), bytes.size(), 0);
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
        const bool lives_on = n > 0 && (from == client_ || damage(bytes));
        return send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL) != -1 && lives_on;
    }

    bool damage(std::string& bytes) {
        std::unique_lock<std::mutex> guard(lock_);
        if (!fault_)
            return true;
        held_ += std::exchange(bytes, {});
        if (held_.size() < size_)
            return true;
        bytes = std::exchange(held_, {});
        const fault how = std::exchange(fault_, nullptr);
        guard.unlock();
        return how(bytes);
    }

    sockaddr_in address_{};
    socklen_t address_size_ = sizeof address_;
    int port_;
    int listener_ = new_socket();
    int stop_event_ = eventfd(0, EFD_CLOEXEC);
    int client_ = -1;
    int server_ = -1;
    std::string held_; // of the server's bytes
    std::mutex lock_;
    std::size_t size_ = 0;
    fault fault_;
    std::thread thread_;
};

#endif
