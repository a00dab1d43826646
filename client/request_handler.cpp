// The parts of the request cycle that do not depend on the parser.
#include "request_handler.h"

#include "platform_log.h"

#include <cstring>
#include <utility>

namespace ns_req_template {

int request_handler::exchange(int sub_command, const std::uint8_t* msg, int len) {
    constexpr int no_connection = -2;
    int r = client ? client->send_msg_to_server(request_cmd, sub_command, msg,
                                                static_cast<unsigned int>(len))
                   : no_connection;
    if (r < 0)
        return log_failure("Send message error with %d\n", r);
    r = client->recv_msg_from_server();
    if (r < 0)
        return log_failure("Receive message error with %d\n", r);
    return r;
}

int request_handler::receive_parts() {
    constexpr int capacity = answer_parts_max * answer_payload_max;
    joined_parts.resize(capacity + 1); // the last byte stays zero, so text always ends
    const int r = client->recv_more_msg(joined_parts.data(), capacity);
    const int used = client->get_more_len();
    if (used < joined_len)
        std::memset(joined_parts.data() + used, 0, static_cast<std::size_t>(joined_len - used));
    joined_len = used;
    return r;
}

void request_handler::connect(std::shared_ptr<client_comm> connection, const char* failure) {
    if (connection->connect_to_server() < 0)
        throw failure;
    client = std::move(connection);
}

int request_handler::log_failure(const char* format, int code) const {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    __android_log_print(ANDROID_LOG_ERROR, log_tag, format, code);
#pragma GCC diagnostic pop
    return code;
}

} // namespace ns_req_template
