// Taking answers as text.
#include "block_instances.h"

namespace ns_req_template {

template<>
int request_handler::handle_request(std::shared_ptr<tools::whole_text> into) {
    const data_struct* answer = client->get_recv_data();
    const unsigned char* text = answer->msg;
    if (answer->msg_len > answer_payload_max) {
        if (const int code = receive_parts(); code < 0)
            return code;
        text = joined_parts.data();
    }
    into->text = reinterpret_cast<const char*>(text); // a zero byte always follows
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<tools::whole_text> from, std::ostream& out) {
    out << from->text;
}

} // namespace ns_req_template
