// moncl-exporter over real servers: scrapes, figures as JSON, events, and what it refuses.
#include "encrypted_server.h"
#include "http_client.h"

#include <cerrno>
#include <nlohmann/json.hpp>
#include <regex>

namespace {
using nlohmann::json;

std::string at(int port) {
    return "127.0.0.1:" + std::to_string(port);
}

std::string up(int port, int value) {
    return "moncl_up{host=\"" + at(port) + "\"} " + std::to_string(value) + "\n";
}

std::string cpu_of(int port) {
    return "moncl_cpu_seconds_total{host=\"" + at(port) + "\",cpu=\"0\",mode=\"user\"} ";
}

// Asks until the answer holds a text, at most ten seconds.
http_answer get_until(const exporter_process& from, const std::string& path,
                      const std::string& text) {
    http_answer last;
    for (int turn = 0; turn < 100 && !last.has(text); ++turn) {
        usleep(turn == 0 ? 0 : 100000);
        last = from.get(path);
    }
    EXPECT_TRUE(last.has(text)) << text << " in " << last.text;
    return last;
}

// A command of the shell, in which $url is the exporter's address.
struct shell : child_process {
    shell(const std::string& url, const std::string& command)
        : child_process({"sh", "-c", "url='" + url + "'; " + command}), status(wait()) {}
    int status;
};
} // namespace

TEST(exporter, a_server_that_is_killed_costs_the_others_nothing_and_comes_back) {
    server_process one, two;
    auto three = std::make_unique<server_process>();
    const int third = three->port;
    const exporter_process exporter("--connect " + at(one.port) + " --connect " + at(two.port) +
                                    " --connect " + at(third));
    const http_answer all = exporter.get("/metrics");
    for (const int port : {one.port, two.port, third})
        EXPECT_TRUE(all.has(up(port, 1)) && all.has(cpu_of(port))) << all.text;
    three.reset();
    const http_answer rest = exporter.get("/metrics");
    EXPECT_TRUE(rest.has(up(one.port, 1)) && rest.has(cpu_of(two.port)) && rest.has(up(third, 0)));
    EXPECT_FALSE(rest.has(cpu_of(third)));
    EXPECT_TRUE(exporter.get("/api/v1/hosts").has("\"text\":\"no answer from " + at(third)));
    three = std::make_unique<server_process>(third);
    get_until(exporter, "/metrics", up(third, 1));
    EXPECT_TRUE(exporter.get("/metrics").has(cpu_of(third)));
}

TEST(exporter, the_form_of_metrics_follows_the_accept_header) {
    const server_process server;
    const exporter_process exporter("--connect " + at(server.port));
    constexpr const char* openmetrics = "application/openmetrics-text; version=1.0.0";
    constexpr const char* older = "text/plain; version=0.0.4";
    const struct {
        const char* name;
        const char* accept;
        const char* type;
    } cases[] = {
        {"none", "", older},
        {"anything", "Accept: */*\r\n", older},
        {"openmetrics", "Accept: application/openmetrics-text\r\n", openmetrics},
        {"of prometheus",
         "Accept: application/openmetrics-text;version=1.0.0;q=0.5,text/plain;q=0.2\r\n",
         openmetrics},
        {"prefers the older", "Accept: application/openmetrics-text;q=0.1, text/plain;q=0.2\r\n",
         older},
        {"refuses openmetrics", "Accept: application/openmetrics-text; q=0\r\n", older},
        {"of a version to come", "Accept: application/openmetrics-text;version=2.0.0\r\n", older},
        {"no number", "Accept: application/openmetrics-text;q=x,text/plain\r\n", older},
    };
    for (const auto& each : cases) {
        const http_answer got =
            exporter.get("/metrics", std::string("Host: localhost\r\n") + each.accept);
        EXPECT_TRUE(got.has(std::string("Content-Type: ") + each.type)) << each.name << got.text;
        EXPECT_EQ(got.has("# EOF"), each.type == openmetrics) << each.name;
    }
}

TEST(exporter, only_named_subjects_have_many_rows_and_each_query_has_its_outcome) {
    const server_process server(0, "--simulate-board");
    const exporter_process usual("--connect " + at(server.port));
    const exporter_process named("--rows 3 --subject top,irq,mem --connect " + at(server.port));
    const std::string few = usual.get("/metrics").body();
    EXPECT_EQ(few.find("moncl_top_"), few.npos);
    EXPECT_EQ(few.find("moncl_interrupt"), few.npos);
    EXPECT_NE(few.find("subject=\"thermal\"} 1\n"), few.npos) << few;
    const std::string many = named.get("/metrics").body();
    const std::regex process("\nmoncl_top_usage_ratio\\{");
    EXPECT_EQ(std::distance(std::sregex_iterator(many.begin(), many.end(), process), {}), 3)
        << many;
    EXPECT_EQ(many.find("moncl_cpu_"), many.npos);
    EXPECT_NE(many.find("moncl_query_duration_seconds{host=\"" + at(server.port) +
                        "\",subject=\"irq\"} 0"),
              many.npos)
        << many;
}

TEST(exporter, a_probe_asks_only_targets_that_are_allowed) {
    const server_process server;
    const exporter_process none("--connect " + at(server.port));
    const exporter_process some("--allow-target 127.0.*.1:" + std::to_string(server.port) +
                                " --allow-target board-*");
    const std::string here = "/probe?target=" + at(server.port);
    EXPECT_EQ(none.get(here).status(), 403);
    const struct {
        const char* name;
        std::string path;
        int status;
    } cases[] = {
        {"allowed", here + "&subject=mem", 200},
        {"no target", "/probe", 400},
        {"no such subject", here + "&subject=mem,none", 400},
        {"subject that needs processes", here + "&subject=proc", 400},
        {"another port", "/probe?target=127.0.0.1:1", 403},
        {"a star is no dot", "/probe?target=127.0.0.9.1:" + std::to_string(server.port), 403},
        {"more than a host", "/probe?target=board-1;x:5757", 403},
        {"a name that goes on", "/probe?target=board-1.example.com", 403},
        {"given twice", here + "&target=127.0.0.1", 400},
    };
    for (const auto& each : cases)
        EXPECT_EQ(some.get(each.path).status(), each.status) << each.name;
    const std::string got = some.get(here + "&subject=mem").body();
    EXPECT_NE(got.find("moncl_memory_total_bytes{host=\"" + at(server.port)), got.npos) << got;
    EXPECT_EQ(got.find("moncl_cpu"), got.npos);
}

TEST(exporter, a_scrape_ends_when_prometheus_stops_waiting) {
    scripted_server slow;
    slow.answer([](int, int sub, const std::string&) -> answer_packets {
        usleep(200000);
        return {error_packet(sub, -ENODEV)};
    });
    const exporter_process exporter("--connect " + at(slow.port()));
    const http_answer cut =
        exporter.get("/metrics", "Host: localhost\r\nX-Prometheus-Scrape-Timeout-Seconds: 1\r\n");
    EXPECT_TRUE(cut.has(up(slow.port(), 0))) << cut.text;
    EXPECT_TRUE(exporter.get("/metrics").has(up(slow.port(), 1)));
}

TEST(exporter, a_scrape_of_a_slow_server_does_not_delay_the_end) {
    scripted_server slow;
    slow.answer([](int, int sub, const std::string&) -> answer_packets {
        usleep(300000);
        return {error_packet(sub, -ENODEV)};
    });
    exporter_process exporter("--connect " + at(slow.port()));
    http_connection scrape(exporter.port);
    scrape.send("GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n");
    for (int turn = 0; turn < 1000 && slow.take_requests().empty(); ++turn)
        usleep(10000);
    exporter.send_signal(SIGTERM);
    EXPECT_EQ(exporter.wait(), 0);
    EXPECT_LT(slow.take_requests().size(), 4) << "of the 15 or more of a scrape";
}

TEST(exporter, asks_encrypted_boards_and_says_why_one_does_not_answer) {
    const file_tree folder;
    std::string keys[2]; // public ones of the files own0 and own1
    for (int i = 0; i < 2; ++i)
        keys[i] = shell(folder.root(),
                        TEST_EMULATOR " " MONCL_PROGRAM " keygen $url/own" + std::to_string(i))
                      .out.substr(0, 40);
    encrypted_server encrypted(keys[0]);
    scripted_server plain;
    for (scripted_server* each : {&encrypted.server, &plain})
        each->answer([](int, int sub, const std::string&) -> answer_packets {
            return {packet(sub, "MemTotal: 2048 kB\nMemAvailable: 1024 kB\n")};
        });
    const int safe = encrypted.server.port();
    const std::string server_key = " --server-key " + encrypted.keys.public_key;
    const std::string own = " --key " + folder.root() + "/own0";
    const struct {
        const char* name;
        std::string options;
        std::string path;
        std::string expected;
    } cases[] = {
        {"right keys", own + server_key, "/metrics", up(safe, 1)},
        {"a target", own + server_key + " --allow-target 127.0.0.1:*",
         "/probe?subject=mem&target=" + at(safe), up(safe, 1)},
        {"a plain server", own + server_key, "/api/v1/hosts", " encrypted"},
        {"no keys", "", "/api/v1/hosts", " encrypted connections only"},
        {"another key", " --key " + folder.root() + "/own1" + server_key, "/api/v1/hosts",
         at(safe) + " refuses this key: add " + keys[1]},
    };
    for (const auto& each : cases) {
        const exporter_process exporter("--subject mem --connect " + at(safe) + " --connect " +
                                        at(plain.port()) + each.options);
        // Why a handshake failed is known after some attempts: it matters which side ends it first.
        http_answer got;
        for (int turn = 0; turn < 8 && !got.has(each.expected); ++turn) {
            exporter.get("/metrics");
            got = exporter.get(each.path);
        }
        EXPECT_TRUE(got.has(each.expected)) << each.name << ": " << got.text;
    }
}

TEST(exporter, answers_only_to_its_own_names_and_plain_requests) {
    const exporter_process exporter("--allow-host board.example --connect 127.0.0.1:1");
    const auto get = [](const std::string& headers) {
        return "GET /api/v1/hosts HTTP/1.1\r\n" + headers;
    };
    const std::string localhost = "Host: localhost\r\n";
    const struct {
        const char* name;
        std::string bytes;
        int status;
    } cases[] = {
        {"localhost with a port", get("Host: LocalHost:9757\r\n"), 200},
        {"an address", get("Host: [2001:db8::1]:80\r\n"), 200},
        {"a name that was given", get("Host: board.example\r\n"), 200},
        {"somebody else's name", get("Host: evil.example\r\n"), 421},
        {"a name that starts like ours", get("Host: localhost.evil.example\r\n"), 421},
        {"a port that is none", get("Host: localhost:x\r\n"), 421},
        {"two names", get(localhost + "Host: evil.example\r\n"), 421},
        {"no name", get(""), 400},
        {"no name of old", "GET /api/v1/hosts HTTP/1.0\r\n", 200},
        {"nothing there", "GET /none HTTP/1.1\r\n" + localhost, 404},
        {"no page in this build, or the page", "GET /metrics/../.. HTTP/1.1\r\n" + localhost, 404},
        {"a post", "POST /metrics HTTP/1.1\r\nContent-Length: 4\r\n" + localhost, 405},
        {"a body", get(localhost + "Content-Length: 4\r\n"), 400},
        {"a body in pieces", get(localhost + "Transfer-Encoding: chunked\r\n"), 400},
        {"a zero byte in an argument", "GET /api/v1/latest?subject=%00 HTTP/1.1\r\n" + localhost,
         400},
        {"too long", get(localhost + "X: " + std::string(100000, 'x') + "\r\n"), 431},
        {"no HTTP", "\x16\x03\x01\x02" + std::string(300, '\xff'), 400},
    };
    for (const auto& each : cases) {
        http_connection to(exporter.port);
        to.send(each.bytes + "Connection: close\r\n\r\n");
        EXPECT_EQ(to.read().status(), each.status) << each.name;
    }
    const http_answer safe = exporter.get("/api/v1/hosts");
    EXPECT_TRUE(safe.has("Content-Security-Policy: default-src 'self'") &&
                safe.has("X-Content-Type-Options: nosniff"));
    EXPECT_FALSE(safe.has("Access-Control-Allow-Origin"));
}

TEST(exporter, tls_and_users_come_from_the_web_configuration) {
    const server_process server;
    const file_tree files;
    // "secret" at a cost of 4
    files.write("/web.yml", "tls_server_config:\n  cert_file: cert.pem\n  key_file: key.pem\n"
                            "basic_auth_users:\n  alice: "
                            "$2b$04$abcdefghijklmnopqrstuu2r9OfJnfCsdneAXAGHnS4UpFFP8WIrW\n");
    EXPECT_EQ(
        shell("", "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
                  "-subj /CN=localhost -addext subjectAltName=DNS:localhost -keyout " +
                      files.root() + "/key.pem -out " + files.root() + "/cert.pem")
            .status,
        0);
    const exporter_process exporter("--web-config " + files.root() + "/web.yml --connect " +
                                    at(server.port));
    const std::string curl =
        "curl -s -o /dev/null -w '%{http_code}' --cacert " + files.root() + "/cert.pem ";
    const std::string url = "https://localhost:" + std::to_string(exporter.port) + "/metrics";
    const struct {
        const char* name;
        std::string options;
        const char* status;
    } cases[] = {
        {"right", "-u alice:secret", "200"},
        {"TLS 1.2", "-u alice:secret --tls-max 1.2", "200"},
        {"TLS 1.1", "-u alice:secret --tls-max 1.1", "000"},
        {"no user", "", "401"},
        {"wrong password", "-u alice:secreT", "401"},
        {"longer password", "-u alice:secret1", "401"},
        {"unknown user", "-u bob:secret", "401"},
        {"no base64", "-H 'Authorization: Basic !'", "401"},
        {"another scheme", "-H 'Authorization: Bearer YWxpY2U6c2VjcmV0'", "401"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(shell(url, curl + each.options + " $url").out, each.status) << each.name;
    // A flood of wrong passwords costs little, and those who are known get in all the same.
    EXPECT_NE(
        shell(url, "for i in 1 2 3 4 5 6 7 8 9 0; do " + curl + "-u alice:$i1 $url $url; done")
            .out.find("429"),
        std::string::npos);
    EXPECT_EQ(shell(url, curl + "-u alice:secret $url").out, "200");
}

TEST(exporter, a_configuration_that_would_let_strangers_in_is_refused) {
    const file_tree files;
    const std::string hash = "$2b$04$abcdefghijklmnopqrstuu2r9OfJnfCsdneAXAGHnS4UpFFP8WIrW";
    const struct {
        const char* name;
        std::string config;
        const char* options;
        const char* message;
    } cases[] = {
        {"beyond loopback", "", "--listen 0.0.0.0:0", "--listen 0.0.0.0:0 would let everybody in"},
        {"all addresses", "", "--listen *:0", "would let everybody in"},
        {"no address", "", "--listen localhost", "needs ADDRESS:PORT"},
        {"a key alone", "", "--key own.key", "the server's key is missing"},
        {"targets of several keys", "", "--server-key a --server-key b --allow-target c",
         "--allow-target goes with one --server-key"},
        {"a pattern with a slash", "", "--allow-target 10.0.0.0/8", "needs HOST[:PORT]"},
        {"no YAML", "a: [", "", "web.yml, line "},
        {"an unknown key", "basic_auth_user:\n  alice: x\n", "",
         "line 2: basic_auth_user is not supported"},
        {"client certificates", "tls_server_config:\n  client_ca_file: ca.pem\n", "",
         "line 2: client_ca_file is not supported"},
        {"a plain password", "basic_auth_users:\n  alice: secret\n", "",
         "line 2: the password of alice needs a bcrypt"},
        {"a user twice", "basic_auth_users:\n  a: " + hash + "\n  a: " + hash + "\n", "",
         "line 3: a stands here"},
        {"no users", "basic_auth_users: {}\n", "", "users are needed here"},
        {"no file", "tls_server_config:\n  cert_file: none.pem\n", "", "none.pem: No such file"},
        {"no key", "tls_server_config:\n  cert_file: web.yml\n", "",
         "TLS needs a cert_file and a key_file"},
    };
    for (const auto& each : cases) {
        std::string line = each.options;
        if (!each.config.empty()) {
            files.write("/web.yml", each.config);
            line += " --web-config " + files.root() + "/web.yml";
        }
        std::istringstream words(MONCL_EXPORTER_PROGRAM " " + line);
        child_process refused({std::istream_iterator<std::string>(words), {}});
        EXPECT_EQ(refused.wait(), 1) << each.name;
        EXPECT_NE(refused.err.find(each.message), refused.err.npos)
            << each.name << ": " << refused.err;
    }
}

TEST(exporter, a_stream_has_samples_and_says_when_a_server_goes_and_comes_back) {
    auto server = std::make_unique<server_process>();
    const int port = server->port;
    const exporter_process exporter("--interval 0.2 --connect " + at(port));
    EXPECT_TRUE(exporter.get("/api/v1/hosts").has("\"up\":null"));
    http_connection stream(exporter.port);
    stream.send("GET /api/v1/stream?subject=cpu HTTP/1.1\r\nHost: localhost\r\n\r\n");
    const http_answer first = stream.read("\"user_percent\":");
    EXPECT_TRUE(first.has("event: host\ndata: {") &&
                first.has("event: sample\ndata: {\"schema\":1,"))
        << first.text;
    EXPECT_FALSE(first.has("\"subject\":\"mem\""));
    server.reset();
    EXPECT_TRUE(stream.read("\"up\":false").has("event: host\ndata: {\"host\":\"" + at(port)));
    server = std::make_unique<server_process>(port);
    stream.read("\"up\":true");
    stream.read("event: sample");
}

TEST(exporter, a_stream_that_nobody_reads_is_given_up) {
    const server_process server;
    exporter_process exporter("--interval 0.1 --connect " + at(server.port));
    const auto threads = [&] {
        std::ifstream status("/proc/" + std::to_string(exporter.pid()) + "/status");
        std::string text(std::istreambuf_iterator<char>(status), {});
        return std::stoi(text.substr(text.find("Threads:") + 8));
    };
    const int before = threads();
    http_connection stream(exporter.port, 2048);
    stream.send("GET /api/v1/stream HTTP/1.1\r\nHost: localhost\r\n\r\n");
    int turn = 0;
    for (; turn < 100 && threads() == before; ++turn)
        usleep(100000);
    EXPECT_LT(turn, 100) << "no thread for the stream";
    // Neither the stream's own nor that of the connection to the server is left.
    for (turn = 0; turn < 450 && threads() > before; ++turn)
        usleep(100000);
    EXPECT_LT(turn, 450);
    EXPECT_EQ(exporter.get("/api/v1/hosts").status(), 200);
    exporter.send_signal(SIGTERM);
    EXPECT_EQ(exporter.wait(), 0);
}

TEST(exporter, history_is_thinned_evenly_and_goes_on_in_the_recording) {
    const server_process server;
    const file_tree files;
    const std::string line =
        "--interval 0.1 --connect " + at(server.port) + " --record " + files.root() + "/host.db";
    std::string last;
    {
        exporter_process exporter(line);
        get_until(exporter, "/api/v1/history?subject=cpu&since=-5m&points=5", "\"thinned\":true");
        const json all =
            json::parse(exporter.get("/api/v1/history?subject=cpu,mem&since=0").body());
        const json few =
            json::parse(exporter.get("/api/v1/history?subject=cpu,mem&since=0&points=2").body());
        EXPECT_EQ(few["samples"].size(), 4);
        EXPECT_EQ(all.count("thinned"), 0);
        std::string time;
        for (const json& each : all["samples"]) {
            EXPECT_LE(time, each["time"]);
            time = each["time"];
        }
        last = time;
        exporter.send_signal(SIGTERM);
        EXPECT_EQ(exporter.wait(), 0);
    }
    const exporter_process again(line);
    get_until(again, "/api/v1/history?subject=cpu&since=-1s&points=5", "\"usage_percent\":");
    const json found = json::parse(
        again.get("/api/v1/history?subject=cpu&since=" + last.substr(0, 16) + "Z").body());
    bool before = false, after = false;
    for (const json& each : found["samples"]) {
        before = before || (each["time"] < last && each["rows"][0]["usage_percent"].is_number());
        after = after || each["time"] > last;
    }
    EXPECT_TRUE(before && after) << found;
    const std::pair<const char*, const char*> wrong[] = {
        {"since=x", "history needs since"},
        {"since=-1m&until=x", "until is a time"},
        {"since=0&points=0", "points is"},
        {"since=0&host=none", "there is no host none"},
        {"", "history needs since"}};
    for (const auto& [arguments, message] : wrong)
        EXPECT_TRUE(again.get(std::string("/api/v1/history?subject=cpu&") + arguments).has(message))
            << arguments;
}

// Numbers and times are any; "..." stands for any text.
TEST(exporter, the_examples_of_the_page_of_the_api_are_true) {
    const server_process server(0, "--simulate-board");
    const exporter_process exporter("--connect " + at(server.port));
    exporter.get("/api/v1/latest?subject=nnu");
    const auto plain = [](std::string text) {
        text = std::regex_replace(text, std::regex("\n( {4})?"), "");
        return std::regex_replace(text, std::regex("null|-?[0-9]+(\\.[0-9]+)?"), "N");
    };
    std::ifstream page(API_PAGE);
    const std::string text(std::istreambuf_iterator<char>(page), {});
    const std::regex example("\n    \\$ curl (.*'(http://127.0.0.1:9757)(.*)')((\n    .*)+)");
    int examples = 0;
    for (std::sregex_iterator each(text.begin(), text.end(), example), end; each != end; ++each) {
        std::string path = std::regex_replace((*each)[3].str(), std::regex(":5757"),
                                              ":" + std::to_string(server.port));
        const std::string got =
            plain(shell("http://127.0.0.1:" + std::to_string(exporter.port) + path,
                        "curl -sN -m 3 \"$url\"")
                      .out);
        std::string rest = plain((*each)[4]);
        for (std::size_t from = 0; !rest.empty();) {
            const std::string piece = rest.substr(0, rest.find("..."));
            rest.erase(0, std::min(rest.size(), piece.size() + 3));
            const std::size_t found = got.find(piece, from);
            ASSERT_NE(found, got.npos) << path << "\nhas no " << piece << "\nin " << got;
            from = found + piece.size();
        }
        ++examples;
    }
    EXPECT_EQ(examples, 6);
}
