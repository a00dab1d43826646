// The exporter's HTTP server: limits on connections, and deadlines, of which these are short.
#include "http_server.h"

#include "http_client.h"

#include <thread>

namespace {
constexpr std::size_t long_answer = 16 << 20; // more than the kernel keeps for a reader

struct short_lived_server {
    explicit short_lived_server(exporter::http_options limits) {
        read_listen_address("127.0.0.1:0", limits.at);
        server =
            std::make_unique<exporter::http_server>(limits, [](const exporter::request& asked) {
                exporter::response made;
                made.body = asked.path == "/long" ? std::string(long_answer, '.') : "short";
                return made;
            });
        closing = std::thread([this] {
            for (; !stopping; usleep(100000))
                server->close_overdue();
        });
    }
    ~short_lived_server() {
        stopping = true;
        closing.join();
    }
    int port() const { return server->port(); }

    std::unique_ptr<exporter::http_server> server;
    std::atomic<bool> stopping{false};
    std::thread closing;
};

std::string get(const std::string& path) {
    return "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}
} // namespace

TEST(http_server, connections_are_limited_in_all_and_for_each_address) {
    exporter::http_options limits;
    limits.connections = 4;
    limits.connections_per_address = 2;
    const short_lived_server running(limits);
    std::vector<std::unique_ptr<http_connection>> open;
    for (const std::uint32_t from : {1, 1, 2, 2}) {
        open.push_back(std::make_unique<http_connection>(running.port(), 0, from));
        open.back()->send(get("/"));
        EXPECT_EQ(open.back()->read("short").status(), 200) << from;
    }
    http_connection one_more(running.port(), 0, 3);
    one_more.send(get("/"));
    open.erase(open.begin(), open.begin() + 2); // the two of the first address
    // Either it was cut off, or it has waited until there is room.
    const bool waited = one_more.read("short").status() == 200;
    EXPECT_TRUE(waited || one_more.ended);
    http_connection third_of_its_address(running.port(), 0, 2);
    third_of_its_address.send(get("/"));
    EXPECT_EQ(third_of_its_address.read("short").status(), 0);
    EXPECT_TRUE(third_of_its_address.ended);
}

TEST(http_server, whoever_takes_too_long_is_cut_off) {
    using std::chrono::seconds;
    constexpr seconds never{60};
    const struct {
        const char* name;
        seconds first, next, answer, stall;
        std::string sent;
        std::string read; // up to here, before the time begins
        int status;
    } cases[] = {
        {"says nothing", seconds(1), never, never, never, "", "", 0},
        {"half a request", seconds(1), never, never, never, "GET / HTTP/1.1\r\n", "", 0},
        {"no next request", never, seconds(1), never, never, get("/"), "short", 200},
        {"half a next request", never, seconds(1), never, never, get("/") + "GET /", "short", 200},
        {"a long answer that is not read in time", never, never, seconds(1), never, get("/long"),
         "\r\n\r\n", 200},
        {"a reader that stands still", never, never, never, seconds(1), get("/long"), "\r\n\r\n",
         200},
    };
    for (const auto& each : cases) {
        exporter::http_options limits;
        limits.first_request = each.first;
        limits.next_request = each.next;
        limits.answer = each.answer;
        limits.stall = each.stall;
        const short_lived_server running(limits);
        http_connection slow(running.port(), 4096);
        slow.send(each.sent);
        if (each.status != 0) {
            EXPECT_EQ(slow.read(each.read).status(), each.status) << each.name;
        }
        if (each.sent == get("/long"))
            usleep(2500000); // takes nothing for longer than is allowed
        EXPECT_LT(slow.read().text.size(), long_answer) << each.name;
        EXPECT_TRUE(slow.ended) << each.name;
    }
}
