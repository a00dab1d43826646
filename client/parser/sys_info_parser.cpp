// CPU frequency, possible CPUs and system version.
#include "sys_info.h"

#include "platform_log.h"
#include "text_reader.h"

#include <exception>

namespace {
// Runs `decode` on every line of the text. Returns false after an exception, which is logged with
// `failure`.
template<class Decode>
bool decode_lines(const std::string& text, const char* failure, Decode decode) {
    try {
        text_reader lines(text);
        for (std::string_view line; lines.next_line(line);)
            decode(lines.fields_of(line));
        return true;
    } catch (const std::exception& e) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, failure, e.what());
        return false;
    }
}
} // namespace

int cpu_freq_parser::parse_cpu_freq(unsigned char* payload) {
    cpu_f = std::make_shared<cpu_freq>();
    return parse_cpu_freq_msg(std::string(payload_text(payload)));
}

int cpu_freq_parser::parse_cpu_freq_msg(const std::string& text) {
    bool done = decode_lines(text, "parse_cpu_freq failed %s!\n",
                             [this](text_reader fields) { fields.number(cpu_f->cpu_frequency); });
    return done ? 0 : -1;
}

int cpu_possible_parser::parse_cpu_possible(unsigned char* payload) {
    return parse_cpu_possible_msg(std::string(payload_text(payload)));
}

int cpu_possible_parser::parse_cpu_possible_msg(const std::string& text) {
    bool done =
        decode_lines(text, "parse_cpu_possible_msg failed %s!\n", [this](text_reader fields) {
            char skipped;
            fields.character(skipped);
            fields.character(skipped);
            fields.number(cpu_num);
            // The sum is unsigned because that of INT_MAX and 1 would overflow.
            cpu_num = static_cast<int>(static_cast<unsigned>(cpu_num) + 1);
        });
    return done ? 0 : -1;
}

int version_parser::parse_version(unsigned char* payload) {
    ver = std::make_shared<sys_version>();
    return parse_version_msg(std::string(payload_text(payload)));
}

int version_parser::parse_version_msg(const std::string& text) {
    return decode_lines(text, "parse_cpu_freq failed %s!\n", [this](text_reader fields) {
        if (std::string_view word; fields.word(word))
            ver->version = word;
    });
}
