// What the managers' tests share: requests checked byte for byte, answers given to a manager
// without a server, payloads in memory that ends where they end.
#ifndef MONCL_TESTS_MANAGER_SUPPORT_H
#define MONCL_TESTS_MANAGER_SUPPORT_H

#include "log_capture.h"
#include "request_handler.h"
#include "scripted_server.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <iomanip>
#include <iterator>
#include <sstream>

/// @p value as the bytes of this machine, which are those of the wire.
template<class Value>
std::string native(const Value& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

/// @p text in a field of @p size bytes.
inline std::string field(std::string text, std::size_t size) {
    text.resize(size);
    return text;
}

/// @p text @p count times.
inline std::string repeated(const std::string& text, int count) {
    std::ostringstream all;
    std::fill_n(std::ostream_iterator<std::string>(all), count, text);
    return all.str();
}

/// @p values, a blank after each.
template<class... Values>
std::string line_of(const Values&... values) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    ((out << values << ' '), ...);
    return out.str();
}

/// A text, and what must come of it.
struct text_case {
    const char* name;
    std::string text;
    std::string expected;
};

/// Checks what @p decode makes of each text.
template<class Decode>
void expect_each(Decode decode, std::initializer_list<text_case> cases) {
    for (const text_case& each : cases)
        EXPECT_EQ(decode(each.text), each.expected) << each.name;
}

/// A request apart from its time stamp, which is zero, and the 4 bytes after its payload.
inline std::string request_bytes(int command, int sub_command, const std::string& payload) {
    std::string bytes =
        native(command) + native(sub_command) + native(static_cast<int>(payload.size())) + "0";
    bytes = field(bytes, 18) + "0" + static_cast<char>(client_comm::client_id);
    return field(bytes, 44) + payload;
}

/// A recorded request as `request_bytes` writes it; fails a test if it has no time stamp.
inline std::string comparable(std::string request) {
    EXPECT_NE(header_of(request).time.tv_sec, 0);
    return request.replace(24, 16, 16, '\0').substr(0, request.size() - 4);
}

/// Runs a query, of which @p result is the result, and checks every byte of its requests.
/// @return result and requests as "AE02:3=D2040000 AE02:1", a result of 0 and a payload of four
///         zeros left out
inline std::string sent(scripted_server& server, int result) {
    std::ostringstream out;
    out << std::hex << std::uppercase << std::setfill('0');
    for (const std::string& recorded : server.take_requests()) {
        const data_struct header = header_of(recorded);
        const std::string request = comparable(recorded);
        const std::string payload = request.substr(frame_header_size);
        EXPECT_EQ(request, request_bytes(header.command, header.sub_command, payload));
        out << ' ' << header.command << ':' << std::dec << header.sub_command << std::hex;
        if (payload == std::string(4, '\0'))
            continue;
        out << '=';
        for (const char byte : payload)
            out << std::setw(2) << +static_cast<unsigned char>(byte);
    }
    const std::string text = out.str();
    return result != 0 ? std::to_string(result) + text : text.substr(text.empty() ? 0 : 1);
}

/// An answer's payload and the 4 bytes after it, at the alignment it has in a frame. It is memory
/// of its own, so that a sanitizer sees a read beyond it.
class payload_area {
public:
    explicit payload_area(const std::string& bytes) {
        std::memcpy(*this, bytes.data(), std::min<std::size_t>(bytes.size(), answer_payload_max));
    }
    operator unsigned char*() { return memory_.get() + 4; }

private:
    std::unique_ptr<unsigned char[]> memory_{new unsigned char[4 + answer_payload_max + 4]{}};
};

/// Decodes @p payload as if it had been received at @p time, and returns the report, written to a
/// stream that another report left right-adjusted, fixed, at precision 3. @p manager has a
/// connection, which need not be connected.
template<class Parser>
std::string report(ns_req_template::request_handler& manager, std::shared_ptr<Parser> parser,
                   int sub_command, const std::string& payload, timeval time = {}) {
    data_struct* answer = manager.client->get_recv_data();
    answer->sub_command = sub_command;
    answer->time = time;
    std::memcpy(answer->msg, payload_area(payload), answer_payload_max);
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
    cout_capture printed;
};

/// A manager, `m`, connected to a server that answers as the test tells it to.
template<class Manager>
struct served {
    explicit served(bool whole = false) : connection(server.connect(whole)), m(connection) {}
    ~served() { close_at_once(*connection); }
    /// `sent` of this server.
    std::string sent(int result) { return ::sent(server, result); }
    /// `sent` of queries, one after the other, that write their reports nowhere.
    std::string sent_by(std::initializer_list<int (Manager::*)(std::ostream*)> queries) {
        int result = 0;
        for (auto query : queries)
            result += (m.*query)(nullptr);
        return sent(result);
    }

    scripted_server server;
    std::shared_ptr<client_comm> connection;
    Manager m;
    cout_capture printed;
    log_capture log;
};

#endif
