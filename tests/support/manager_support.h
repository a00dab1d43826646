// What the managers' tests share: requests compared byte for byte, answers put in front of a
// manager without a server, payloads in memory that ends where they end.
#ifndef MONCL_TESTS_MANAGER_SUPPORT_H
#define MONCL_TESTS_MANAGER_SUPPORT_H

#include "request_handler.h"
#include "scripted_server.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <iomanip>
#include <random>
#include <sstream>

/// @p value as the bytes of this machine, which are those of the wire.
template<class Int>
std::string native(Int value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

/// @p text in a field of @p size bytes.
inline std::string field(std::string text, std::size_t size) {
    text.resize(size);
    return text;
}

/// The parts of @p text between bars: "a|b c||" is "a", "b c", "", "".
std::vector<std::string> split(const std::string& text);

/// A request apart from its time stamp and the bytes behind its payload.
std::string request_bytes(int command, int sub_command, const std::string& payload);
/// The requests since the last call, made comparable to `request_bytes`.
std::vector<std::string> comparable_requests(scripted_server& server);

/// A query, and the requests it is to send.
struct query {
    std::function<int()> ask;
    std::vector<int> sub_commands;
    std::string payload = std::string(4, '\0');
};
/// Runs every query against @p server, which must answer each request with success.
void expect_requests(scripted_server& server, int command, const std::vector<query>& queries);

/// An answer's payload and the 4 bytes behind it, at the alignment it has in a frame. It is memory
/// of its own, so that a sanitizer sees a read behind it.
class payload_area {
public:
    explicit payload_area(const std::string& bytes = {});
    /// Fills the payload with random bytes, some of them likelier than others.
    void randomize(std::mt19937& random);
    /// Fills the payload with @p pieces in random order, and sometimes to its very end.
    void randomize(std::mt19937& random, const std::vector<std::string>& pieces);
    unsigned char* data() { return memory_.get() + 4; }

private:
    std::unique_ptr<unsigned char[]> memory_;
};

/// Decodes @p payload as if it had been received at @p time, and returns the report, written to a
/// stream that another report left right-adjusted, fixed, at precision 3. @p manager has a
/// connection, which need not be connected.
template<class Parser>
std::string report(ns_req_template::request_handler& manager, std::shared_ptr<Parser> parser,
                   int sub_command, const std::string& payload, timeval time = {}) {
    data_struct* answer = manager.client->get_recv_data();
    answer->sub_command = sub_command;
    answer->msg_len = static_cast<int>(payload.size());
    answer->time = time;
    std::memset(answer->msg, 0, answer_payload_max);
    std::memcpy(answer->msg, payload.data(),
                std::min<std::size_t>(payload.size(), answer_payload_max));
    EXPECT_GE(manager.handle_request(parser), 0);
    std::ostringstream out;
    out << std::right << std::fixed << std::setprecision(3);
    manager.show_result(parser, out);
    return out.str();
}

/// A manager whose connection has no server.
template<class Manager>
struct offline : Manager {
    offline() { this->client = std::make_shared<client_comm>("127.0.0.1", 1); }
};

#endif
