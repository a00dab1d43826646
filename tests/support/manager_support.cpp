// What the managers' tests share.
#include "manager_support.h"

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream rest(text + "|");
    for (std::string part; std::getline(rest, part, '|');)
        parts.push_back(part);
    return parts;
}

std::string request_bytes(int command, int sub_command, const std::string& payload) {
    std::string bytes = native<std::int32_t>(command) + native<std::int32_t>(sub_command) +
                        native(static_cast<std::int32_t>(payload.size())) + "0";
    bytes = field(bytes, 18) + "0" + static_cast<char>(client_comm::client_id);
    return field(bytes, 44) + payload;
}

std::vector<std::string> comparable_requests(scripted_server& server) {
    std::vector<std::string> requests = server.take_requests();
    for (std::string& request : requests) {
        EXPECT_NE(header_of(request).time.tv_sec, 0);
        request.replace(24, 16, 16, '\0');
        request.resize(request.size() - 4);
    }
    return requests;
}

void expect_requests(scripted_server& server, int command, const std::vector<query>& queries) {
    for (const query& one : queries) {
        EXPECT_EQ(one.ask(), 0);
        std::vector<std::string> expected;
        for (int sub_command : one.sub_commands)
            expected.push_back(request_bytes(command, sub_command, one.payload));
        EXPECT_EQ(comparable_requests(server), expected)
            << "query with sub-command " << one.sub_commands.at(0);
    }
}

payload_area::payload_area(const std::string& bytes)
    : memory_(new unsigned char[4 + answer_payload_max + 4]{}) {
    std::memcpy(data(), bytes.data(), std::min<std::size_t>(bytes.size(), answer_payload_max));
}

void payload_area::randomize(std::mt19937& random) {
    static const unsigned char likely[] = {0, 1, 0x7f, 0x80, 0xff, '\n', '7'};
    const bool only_likely = random() % 2 == 0;
    for (int i = 0; i < answer_payload_max; ++i)
        data()[i] =
            only_likely ? likely[random() % sizeof likely] : static_cast<unsigned char>(random());
}

void payload_area::randomize(std::mt19937& random, const std::vector<std::string>& pieces) {
    const std::size_t size = random() % 4 == 0 ? answer_payload_max : random() % 400;
    std::string text;
    while (text.size() < size)
        text += pieces[random() % pieces.size()];
    text.resize(size);
    std::memset(data(), 0, answer_payload_max);
    std::memcpy(data(), text.data(), size);
}
