// A blocking HTTP client for one request at a time, and moncl-exporter as a process to ask.
#ifndef MONCL_TESTS_HTTP_CLIENT_H
#define MONCL_TESTS_HTTP_CLIENT_H

#include "child_process.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>

/// What came back: all of it, until the other side closed.
struct http_answer {
    explicit http_answer(std::string bytes = {}) : text(std::move(bytes)) {}
    /// 0 if there is none.
    int status() const { return text.rfind("HTTP/1.1 ", 0) == 0 ? std::stoi(text.substr(9)) : 0; }
    std::string body() const {
        return text.substr(std::min(text.find("\r\n\r\n"), text.size() - 4) + 4);
    }
    bool has(const std::string& part) const { return text.find(part) != text.npos; }
    std::string text;
};

/// A connection to a loopback port.
class http_connection {
public:
    /// @param receive_bytes of the socket's buffer; 0: the usual
    /// @param from          last number of the loopback address that it comes from
    explicit http_connection(int port, int receive_bytes = 0, std::uint32_t from = 1) {
        sockaddr_in own{};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK - 1 + from);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
        if (receive_bytes > 0)
            setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive_bytes, sizeof receive_bytes);
        const timeval longest{20, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<in_port_t>(port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    }
    ~http_connection() { close(fd_); }
    http_connection(const http_connection&) = delete;
    http_connection& operator=(const http_connection&) = delete;

    void send(const std::string& bytes) const {
        ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    /// Reads until @p end was read, or the other side closed.
    http_answer read(const std::string& end = {}) {
        char part[65536];
        ssize_t n = 0;
        while ((end.empty() || text_.find(end) == text_.npos) &&
               (n = recv(fd_, part, sizeof part, 0)) > 0)
            text_.append(part, static_cast<std::size_t>(n));
        ended = n == 0 || (n < 0 && errno != EAGAIN);
        return http_answer(std::exchange(text_, {}));
    }

    bool ended = false; ///< the other side closed, as far as the latest `read` saw

private:
    int fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string text_;
};

/// moncl-exporter at a free port, with what @p line holds, blanks between its words.
struct exporter_process : child_process {
    explicit exporter_process(const std::string& line) : child_process(arguments(line)) {
        read_until("\n");
        if (const std::size_t colon = out.rfind(':'); colon != out.npos)
            port = std::atoi(out.c_str() + colon + 1);
    }
    static std::vector<std::string> arguments(const std::string& line) {
        std::istringstream words(MONCL_EXPORTER_PROGRAM " --listen 127.0.0.1:0 " + line);
        return {std::istream_iterator<std::string>(words), {}};
    }

    /// @param headers whole lines
    http_answer get(const std::string& path,
                    const std::string& headers = "Host: localhost\r\n") const {
        http_connection to(port);
        to.send("GET " + path + " HTTP/1.1\r\nConnection: close\r\n" + headers + "\r\n");
        return to.read();
    }
    int port = 0;
};

#endif
