// The server against strangers: too many, silent, without the right key; and who is told what.
#include "curve_access.h"

#include "child_process.h"
#include "manager_support.h"
#include "running_server.h"

#include <arpa/inet.h>
#include <chrono>
#include <deque>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <zmq.h>

namespace {
const std::string cpu_query = request_bytes(0xAE02, 1, "");

monsrv::curve_key_pair new_keys() {
    char public_key[41];
    char secret_key[41];
    EXPECT_EQ(zmq_curve_keypair(public_key, secret_key), 0);
    return {public_key, secret_key};
}

std::string text_of(const monsrv::curve_key_pair& keys) {
    return "public = \"" + keys.public_key + "\"\nsecret = \"" + keys.secret_key + "\"\n";
}

// A socket of its own context that asks for CPU usage.
class asker {
public:
    explicit asker(int port, const monsrv::curve_key_pair& own = {},
                   const std::string& server_key = "") {
        const int linger_ms = 0;
        zmq_setsockopt(socket_, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
        if (!server_key.empty()) {
            zmq_setsockopt(socket_, ZMQ_CURVE_SERVERKEY, server_key.c_str(), 41);
            zmq_setsockopt(socket_, ZMQ_CURVE_PUBLICKEY, own.public_key.c_str(), 41);
            zmq_setsockopt(socket_, ZMQ_CURVE_SECRETKEY, own.secret_key.c_str(), 41);
        }
        zmq_connect(socket_, ("tcp://127.0.0.1:" + std::to_string(port)).c_str());
    }
    ~asker() {
        zmq_close(socket_);
        zmq_ctx_term(context_);
    }
    asker(const asker&) = delete;
    asker& operator=(const asker&) = delete;

    bool answers(int within_ms) {
        zmq_setsockopt(socket_, ZMQ_RCVTIMEO, &within_ms, sizeof within_ms);
        zmq_send(socket_, "", 0, ZMQ_SNDMORE);
        zmq_send(socket_, cpu_query.data(), cpu_query.size(), 0);
        return zmq_recv(socket_, nullptr, 0, 0) == 0 && zmq_recv(socket_, nullptr, 0, 0) > 0;
    }

private:
    void* context_ = zmq_ctx_new();
    void* socket_ = zmq_socket(context_, ZMQ_DEALER);
};

constexpr int soon_ms = 20000; // a bound that a loaded machine does not reach
constexpr int never_ms = 300;  // how long an answer that must not come is waited for

// Whether @p holds comes true.
bool comes_true(const std::function<bool()>& holds) {
    for (int i = 0; i < 4000 && !holds(); ++i)
        usleep(5000);
    return holds();
}

// Sends @p bytes by a plain TCP socket and says no more.
// Returns whether the server closes the connection.
bool is_cut_off(int port, const std::string& bytes) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(static_cast<std::uint16_t>(port));
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience{soon_ms / 1000, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ssize_t n = connect(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at);
    if (n == 0)
        n = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    char received[1024];
    while (n > 0)
        n = recv(fd, received, sizeof received, 0);
    const bool is_closed = n == 0 || errno == ECONNRESET;
    close(fd);
    return is_closed;
}
} // namespace

TEST(server_on_a_network, takes_as_many_clients_as_it_is_told_to) {
    monsrv::server_options options;
    options.max_clients = 3;
    const running_server server(options);
    asker honest(server.port());
    ASSERT_TRUE(honest.answers(soon_ms));
    std::uint64_t most = 0;
    {
        std::deque<asker> crowd;
        for (int i = 0; i < 100; ++i) {
            crowd.emplace_back(server.port());
            EXPECT_TRUE(i % 10 != 0 || honest.answers(soon_ms));
            most = std::max(most, server.counts().connections);
        }
        EXPECT_TRUE(comes_true([&] { return server.counts().connections == 3; }));
        EXPECT_TRUE(honest.answers(soon_ms));
    }
    EXPECT_LE(most, 3U + 64U) << "those that the kernel had let in before";
    EXPECT_TRUE(comes_true([&] { return server.counts().connections == 1; }));
    asker later(server.port());
    EXPECT_TRUE(later.answers(soon_ms)) << "there is room again";
}

TEST(server_on_a_network, cuts_off_peers_that_are_silent) {
    monsrv::server_options options;
    options.handshake_time = options.heartbeat_period = std::chrono::milliseconds(100);
    const running_server server(options);
    asker honest(server.port());
    const std::string greeting =
        field("\xFF" + std::string(8, 0) + "\x7F\3", 12) + field("NULL", 52);
    const std::string ready = "\4\x1C\5READY\13Socket-Type" + std::string(3, 0) + "\6DEALER";
    const std::pair<const char*, std::string> cases[] = {
        {"nothing", ""},
        {"not of this protocol", "GET / HTTP/1.1\r\n\r\n"},
        {"half a greeting", greeting.substr(0, 30)},
        {"no handshake", greeting},
        {"a handshake and no sign of life", greeting + ready}};
    for (const auto& [name, bytes] : cases) {
        EXPECT_TRUE(is_cut_off(server.port(), bytes)) << name;
        EXPECT_TRUE(honest.answers(soon_ms)) << name;
    }
    EXPECT_TRUE(comes_true([&] { return server.counts().connections == 1; }));
}

TEST(server_on_a_network, takes_clients_whose_keys_are_listed) {
    const auto servers = new_keys();
    const auto listed = new_keys();
    const auto other = new_keys();
    const file_tree files;
    files.write("/allow", "# colleagues\n" + listed.public_key + " the first\n");
    monsrv::server_options options;
    options.curve = {servers, files.root() + "/allow"};
    const running_server server(options);
    const running_server plain_server;
    asker client(server.port(), listed, servers.public_key);
    ASSERT_TRUE(client.answers(soon_ms));
    const struct {
        const char* name;
        int port;
        monsrv::curve_key_pair own;
        std::string server_key;
    } cases[] = {{"a key that is not listed", server.port(), other, servers.public_key},
                 {"another server's key", server.port(), listed, other.public_key},
                 {"no encryption", server.port(), {}, ""},
                 {"encryption at a plain server", plain_server.port(), listed, other.public_key}};
    for (const auto& each : cases) {
        asker stranger(each.port, each.own, each.server_key);
        EXPECT_FALSE(stranger.answers(never_ms)) << each.name;
        EXPECT_TRUE(client.answers(soon_ms)) << each.name;
    }
    EXPECT_TRUE(comes_true([&] { return server.counts().refused_connections >= 1; }));
}

TEST(server_on_a_network, reads_its_keys_again_when_told_to) {
    const auto servers = new_keys();
    const auto first = new_keys();
    const auto second = new_keys();
    const file_tree files;
    files.write("/keys", text_of(servers));
    chmod((files.root() + "/keys").c_str(), 0600);
    files.write("/allow", first.public_key + "\n");
    // The file of allowed keys is read with the rights that the server keeps.
    std::vector<std::string> command{MONSRV_PROGRAM, "--port=0",
                                     "--curve-key=" + files.root() + "/keys",
                                     "--allow=" + files.root() + "/allow"};
    for (const std::string& each : own_rights())
        command.push_back(each);
    child_process server(command);
    server.read_until("\n");
    const int port = std::stoi(server.out.substr(server.out.rfind(':') + 1));
    std::optional<asker> one(std::in_place, port, first, servers.public_key);
    EXPECT_TRUE(one->answers(soon_ms));

    files.write("/allow", "no key\n");
    server.send_signal(SIGHUP);
    server.read_until("the keys read before stay allowed", true);
    EXPECT_TRUE(one->answers(soon_ms));

    files.write("/allow", second.public_key + "\n");
    server.send_signal(SIGHUP);
    asker two(port, second, servers.public_key);
    EXPECT_TRUE(comes_true([&] { return asker(port, second, servers.public_key).answers(500); }));
    EXPECT_FALSE(one->answers(never_ms)) << "on the connection that it had";
    one.emplace(port, first, servers.public_key);
    EXPECT_FALSE(one->answers(never_ms)) << "on a new one";
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
}

TEST(server_on_a_network, does_not_encrypt_without_a_handler_of_keys) {
    const file_tree files;
    files.write("/allow", "");
    void* context = zmq_ctx_new();
    void* taken = zmq_socket(context, ZMQ_REP);
    ASSERT_EQ(zmq_bind(taken, "inproc://zeromq.zap.01"), 0);
    EXPECT_THROW(monsrv::curve_access(context, files.root() + "/allow"), std::system_error);
    zmq_close(taken);
    zmq_ctx_term(context);
}

TEST(server_on_a_network, refuses_files_of_keys_that_are_wrong) {
    const auto keys = new_keys();
    const std::string pub = "public = \"" + keys.public_key + "\"\n";
    const std::string sec = "secret = \"" + keys.secret_key + "\"\n";
    const struct {
        const char* name;
        std::string text;
        std::string wrong;
    } pairs[] = {
        {"as it is written", pub + sec, ""},
        {"with comments and blanks", "# of this host\r\n\n  " + sec + "\t" + pub, ""},
        {"no secret key", pub, "has no secret key"},
        {"nothing", "", "has no public key"},
        {"twice", pub + pub, "line 2: a second public key"},
        {"another's", pub + "secret = \"" + new_keys().secret_key + "\"",
         "the public key is not that of the secret key"},
        {"too short", "public = \"abc\"", "line 1: not a key of 40 characters in quotes"},
        {"not Z85", "public = \"" + std::string(40, '~') + "\"",
         "line 1: not a key of 40 characters in quotes"},
        {"other words", sec + "port = 1", "line 2: neither public = \"KEY\" nor secret = \"KEY\""}};
    for (const auto& each : pairs) {
        monsrv::curve_key_pair read;
        EXPECT_EQ(curve_keys::parse_key_pair(each.text, read), each.wrong) << each.name;
        EXPECT_EQ(read.secret_key, each.wrong.empty() ? keys.secret_key : "") << each.name;
    }
    std::vector<monsrv::allowed_key> allowed;
    EXPECT_EQ(curve_keys::parse_allowed_keys("#\n" + keys.public_key + " a b \n#" + keys.public_key,
                                             allowed),
              "");
    ASSERT_EQ(allowed.size(), 1U);
    EXPECT_EQ(allowed[0].name, "a b");
    EXPECT_EQ(curve_keys::parse_allowed_keys(keys.public_key + "x\n", allowed),
              "line 1: does not start with a key of 40 characters");

    const file_tree files;
    files.write("/keys", pub + sec);
    chmod((files.root() + "/keys").c_str(), 0640);
    monsrv::curve_key_pair read;
    EXPECT_EQ(monsrv::read_key_pair(files.root() + "/keys", read),
              files.root() + "/keys: others than its owner have access to it (chmod 600)");
}

TEST(server_on_a_network, says_what_it_gives_away) {
    for (const char* address : {"127.0.0.1", "127.9.9.9", "localhost"})
        EXPECT_TRUE(monsrv::find_listen_address(address, 0).is_loopback) << address;
    for (const char* address : {"0.0.0.0", "*", "lo", "192.0.2.1", "::"})
        EXPECT_FALSE(monsrv::find_listen_address(address, 0).is_loopback) << address;
    EXPECT_TRUE(monsrv::find_listen_address("[::1]", 0).is_loopback);
    EXPECT_TRUE(monsrv::find_listen_address("::ffff:127.0.0.1", 0).is_loopback);

    child_process refused({MONSRV_PROGRAM, "--port=0", "--bind=0.0.0.0"});
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_NE(refused.err.find("; --insecure allows that\n"), std::string::npos) << refused.err;
    const server_process allowed(0, "--bind=0.0.0.0", {"--insecure"});
    EXPECT_NE(allowed.err.find("without --curve-key everybody"), std::string::npos);
}

TEST(server_on_a_network, counts_what_it_does) {
    const running_server server;
    const auto client = server.connect();
    auto ask = [&client](int command) {
        const std::string request = request_bytes(command, 1, "");
        zmq_send(client->get_socket(), request.data(), request.size(), 0);
        return client->recv_msg_from_server();
    };
    ask(0xAE02);
    ask(1);
    ASSERT_EQ(ask(0xAE40), 8240);
    EXPECT_STREQ(reinterpret_cast<const char*>(client->get_recv_data()->msg),
                 "requests 4\nrefused 1\nslow 0\nmalformed 0\ndropped_requests 0\n"
                 "dropped_answers 0\nrefused_connections 0\nconnections 1\nheld_ids 1\n");
    close_at_once(*client);
}
