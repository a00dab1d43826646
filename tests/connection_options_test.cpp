// What a connection can be told before it connects: encryption, limits, heartbeats, signals. The
// servers are libzmq's own sockets on loopback.
#include "encrypted_server.h"
#include "manager_support.h"

#include <csignal>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace {
const made_keys client_keys;
const made_keys other_keys;

// A connection that is never used for an id, so that the id costs no time-out.
struct connection_to : client_comm {
    explicit connection_to(int server_port) : client_comm("127.0.0.1", server_port) {
        client_id = 7;
        stop_at_last_part(true);
    }
    ~connection_to() {
        close_at_once(*this);
        client_id = 0;
    }
    int ask() {
        const int sent = send_msg_to_server(0xAE02, 1, nullptr, 0);
        return sent < 0 ? sent : recv_msg_from_server();
    }
    // Asks over a new socket. Whether a mechanism that does not fit is noticed here or by the
    // server is a matter of time, so what was only broken off is tried again.
    int ask_anew(handshake expected) {
        int code = -1;
        for (int i = 0; i < 8; ++i) {
            start_over(*this);
            code = ask();
            if (last_handshake() == expected)
                break;
        }
        return code;
    }
};

// Completes one handshake and then says nothing.
class silent_peer {
public:
    silent_peer() {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(listener_, reinterpret_cast<sockaddr*>(&address_), size_);
        listen(listener_, 8);
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address_), &size_);
    }
    ~silent_peer() { close(listener_); }
    int port() const { return ntohs(address_.sin_port); }
    // All that a client sends until it closes, which is appended as a word, or is quiet.
    std::string take(int quiet_ms) const {
        const std::string signature("\xFF\0\0\0\0\0\0\0\1\x7F\3\0NULL", 16);
        const std::string ready("\4\x1C\5READY\x0BSocket-Type\0\0\0\6ROUTER", 30);
        const std::string bytes = field(signature, 64) + ready;
        const int peer = accept(listener_, nullptr, nullptr);
        send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        std::string received;
        for (pollfd item{peer, POLLIN, 0}; poll(&item, 1, quiet_ms) > 0;) {
            char part[4096];
            const ssize_t n = recv(peer, part, sizeof part, 0);
            received += n > 0 ? std::string(part, static_cast<std::size_t>(n)) : "closed";
            if (n <= 0)
                break;
        }
        close(peer);
        return received;
    }

private:
    sockaddr_in address_{};
    socklen_t size_ = sizeof address_;
    int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};
} // namespace

TEST(connection_options_test, know_why_no_handshake_succeeds) {
    encrypted_server encrypted(client_keys.public_key);
    scripted_server plain;
    const std::string own = client_keys.secret;
    const std::string theirs = encrypted.keys.public_key;
    // Name, port, own secret key and server's key, status of the allowed key, outcome, result.
    const std::tuple<const char*, int, std::string, std::string, const char*, handshake, int>
        cases[] = {
            {"encrypted", encrypted.server.port(), own, theirs, "200", handshake::done, 8240},
            {"plain", plain.port(), "", "", "200", handshake::done, 8240},
            {"plain client", encrypted.server.port(), "", "", "200", handshake::needs_encryption,
             -3},
            {"plain server", plain.port(), own, theirs, "200", handshake::not_encrypted, -3},
            {"unknown key", encrypted.server.port(), other_keys.secret, theirs, "200",
             handshake::key_refused, -3},
            {"server cannot judge", encrypted.server.port(), own, theirs, "500",
             handshake::key_refused, -3},
            {"other server key", encrypted.server.port(), own, other_keys.public_key, "200",
             handshake::broken_off, -3},
            {"nobody", 1, own, theirs, "200", handshake::unknown, -3}};
    log_capture log;
    for (const auto& [name, port, secret, server_key, status, outcome, result] : cases) {
        encrypted.checker.status = status;
        connection_to connection(port);
        connection.watch_handshake(true);
        connection.encrypt(secret, server_key);
        EXPECT_EQ(connection.ask_anew(outcome), result) << name;
        EXPECT_EQ(connection.last_handshake(), outcome) << name;
    }
}

TEST(connection_options_test, a_refused_client_gets_in_over_a_new_socket) {
    encrypted_server encrypted(client_keys.public_key);
    log_capture log;
    connection_to connection(encrypted.server.port());
    connection.encrypt(client_keys.secret, encrypted.keys.public_key);
    for (const auto& [status, code] : {std::pair("400", -3), {"200", 8240}}) {
        encrypted.checker.status = status;
        ASSERT_EQ(start_over(connection), 0);
        EXPECT_EQ(connection.ask(), code);
    }
    EXPECT_NE(log.take().find("the server refuses this key, status 400\n"), std::string::npos);
}

TEST(connection_options_test, never_connect_in_plain_where_keys_are_wrong) {
    const scripted_server plain;
    const std::string key = client_keys.secret;
    const std::string no_key(40, '~');
    const std::pair<std::string, std::string> wrong[] = {
        {key, ""},
        {"", key},
        {key.substr(1), key},
        {key, no_key},
        {no_key, key},
        {key, key.substr(0, 31)}}; // 32 bytes with the zero after it, the size of a binary key
    for (const auto& [secret, server_key] : wrong) {
        connection_to connection(plain.port());
        connection.encrypt(secret, server_key);
        EXPECT_EQ(connection.connect_to_server(), -2) << secret << " " << server_key;
        EXPECT_EQ(connection.get_socket(), nullptr);
    }
}

TEST(connection_options_test, limit_what_a_server_may_send) {
    encrypted_server encrypted(client_keys.public_key);
    scripted_server plain;
    const std::string large = packet(1, std::string(8192, 'a')) + std::string(760, 'b');
    // Name, server, limit, answer, result.
    const std::tuple<const char*, scripted_server*, int, std::string, int> cases[] = {
        {"no limit", &plain, 0, large, 9000},
        {"below it", &plain, 9000, large, 9000},
        {"above it", &plain, 8999, large, -3},
        {"encrypted, below it", &encrypted.server, 8240 + 33, packet(1, ""), 8240},
        {"encrypted, above it", &encrypted.server, 8240 + 32, packet(1, ""), -3}};
    for (const auto& [name, server, limit, answer, result] : cases) {
        connection_to connection(server->port());
        if (server != &plain)
            connection.encrypt(client_keys.secret, encrypted.keys.public_key);
        connection.limit_message(limit);
        ASSERT_EQ(connection.connect_to_server(), 0);
        server->next({answer});
        EXPECT_EQ(connection.ask(), result) << name;
    }
}

TEST(connection_options_test, change_no_byte_of_the_wire_by_default) {
    const silent_peer peer;
    connection_to connection(peer.port());
    ASSERT_EQ(connection.connect_to_server(), 0);
    ASSERT_EQ(connection.send_msg_to_server(0xAE02, 1, nullptr, 0), 0);
    const std::string ours = peer.take(300);
    close_at_once(connection);
    void* context = zmq_ctx_new();
    void* bare = zmq_socket(context, ZMQ_REQ);
    zmq_connect(bare, ("tcp://127.0.0.1:" + std::to_string(peer.port())).c_str());
    zmq_send(bare, connection.get_send_data(), 48, 0);
    EXPECT_EQ(ours, peer.take(300));
    const int linger_ms = 0;
    zmq_setsockopt(bare, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
    zmq_close(bare);
    zmq_ctx_term(context);
}

TEST(connection_options_test, drop_a_server_without_a_sign_of_life) {
    const silent_peer peer;
    connection_to connection(peer.port());
    connection.send_heartbeats(50, 100);
    ASSERT_EQ(connection.connect_to_server(), 0);
    const std::string sent = peer.take(5000);
    EXPECT_NE(sent.find("\4PING"), std::string::npos);
    EXPECT_EQ(sent.substr(sent.size() - 6), "closed");
}

TEST(connection_options_test, wait_on_after_a_signal_but_no_longer) {
    scripted_server server;
    server.answer([](int, int, const std::string&) -> answer_packets {
        usleep(200000);
        return {packet(1, "")};
    });
    std::signal(SIGALRM, [](int) {});
    connection_to connection(server.port());
    const itimerval often{{0, 20000}, {0, 20000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    connection.connect_to_server();
    EXPECT_EQ(connection.ask(), -2);
    connection.wait_through_signals(true);
    start_over(connection);
    EXPECT_EQ(connection.ask(), 8240);
    server.next({});
    EXPECT_EQ(connection.ask(), -3);
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
}
