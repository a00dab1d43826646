// The video pipeline: frame rates, image signal processor information, pyramid statistics.
#include "vio_info.h"

#include "text_reader.h"

#include <exception>
#include <iostream>

namespace {
// Runs a decoder of text. What it throws is written to standard output, after `failure`.
template<class Decode>
bool decode(const char* failure, Decode read) {
    try {
        read();
        return true;
    } catch (const std::exception& e) {
        std::cout << failure << e.what() << std::endl;
        return false;
    }
}

// Which words of a line hold the rates: the words between them are labels and units.
enum class rate_words { input_and_output, output_only };

std::shared_ptr<pipe_fps> read_pipe(std::string_view line, rate_words words) {
    auto pipe = std::make_shared<pipe_fps>();
    text_reader fields(line);
    std::string_view name;
    fields.word(name);
    pipe->ip_name = name;
    fields.skip_words(1);
    fields.number(pipe->pipe_id);
    if (words == rate_words::input_and_output) {
        fields.skip_words(3);
        fields.number(pipe->input_fps);
        fields.skip_words(3);
    } else {
        fields.skip_words(2);
    }
    fields.number(pipe->output_fps);
    return pipe;
}

bool read_frame_rates(std::string_view text, rate_words words, fps_map& fps, const char* failure) {
    return decode(failure, [&] {
        text_reader lines(text);
        for (std::string_view line; lines.next_line(line);) {
            auto pipe = read_pipe(line, words);
            fps.emplace(pipe->pipe_id, pipe);
        }
    });
}

std::string_view first_word(text_reader& fields) {
    std::string_view word;
    fields.word(word);
    return word;
}

// The next line, ready to be read; empty at the end of the text.
text_reader following_line(text_reader& lines) {
    std::string_view line;
    return text_reader(lines.next_line(line) ? line : std::string_view());
}

// Reads the number after three words of a line.
void read_labelled_count(text_reader fields, std::uint64_t& count) {
    fields.skip_words(3);
    fields.number(count);
}

// Reads the four lines of a pyramid instance that follow its header.
std::shared_ptr<pym_stat> read_pyramid(text_reader& lines) {
    auto stat = std::make_shared<pym_stat>();
    text_reader mode_line = following_line(lines);
    char mode = 0;
    mode_line.skip_words(1);
    mode_line.character(mode);
    stat->mode = static_cast<std::uint8_t>(mode);
    mode_line.skip_words(1);
    mode_line.number(stat->input_width);
    mode_line.skip_words(1);
    mode_line.number(stat->input_height);

    std::string_view label;
    if (!lines.next_line(label, ','))
        label = {};
    // This throws, and so ends the decoding, where nothing follows the label's colon.
    std::string(label).substr(label.find(':') + 2);
    text_reader(label).number(stat->hw_drop_cnt);
    read_labelled_count(following_line(lines), stat->isp_drop_cnt);
    read_labelled_count(following_line(lines), stat->sw_drop_cnt);
    return stat;
}

void show_isp_info(const std::vector<std::shared_ptr<isp_info>>& all) {
    for (std::size_t i = 0; i < all.size(); ++i) {
        const isp_info& info = *all[i];
        std::cout << std::dec << "================isp_pipe" << i
                  << "==================" << std::endl
                  << "ctx_count:\t" << info.ctx_count << std::endl
                  << "active:   \t" << info.active << std::endl
                  << "unactive:\t" << info.unactive << std::endl
                  << "pipe_id:\t" << info.pipe_id << std::endl
                  << "frame_rate:\t" << info.frame_rate << std::endl
                  << "s_Width:\t" << info.s_Width << std::endl
                  << "s_Height:\t" << info.s_Height << std::endl
                  << "dev_sched_mode:\t" << info.dev_sched_mode << std::endl;
    }
}

void show_pym_stat(const std::vector<std::shared_ptr<pym_stat>>& all) {
    for (std::size_t i = 0; i < all.size(); ++i) {
        const pym_stat& stat = *all[i];
        std::cout << std::dec << "================S" << i << " info==================" << std::endl
                  << "pym mode:" << stat.mode << "\tinput_width:" << stat.input_width
                  << "\tinput_heigh:" << stat.input_height << std::endl
                  << "hw_drop_cnt:" << stat.hw_drop_cnt << "\tsw_drop_cnt:" << stat.sw_drop_cnt
                  << "\tisp_drop_cnt:" << stat.isp_drop_cnt << std::endl;
    }
}
} // namespace

bool isp_parser::parse_isp_fps(unsigned char* msg) {
    return parse_isp_fps_msg(std::string(payload_text(msg)));
}

bool isp_parser::parse_isp_fps_msg(const std::string& msg) {
    return read_frame_rates(msg, rate_words::input_and_output, fps, "parse_isp_fps failed!");
}

bool pym_parser::parse_pym_fps(unsigned char* msg) {
    return parse_pym_fps_msg(std::string(payload_text(msg)));
}

bool pym_parser::parse_pym_fps_msg(const std::string& msg) {
    return read_frame_rates(msg, rate_words::input_and_output, fps, "parse_pym_fps failed!");
}

bool cim_parser::parse_cim_fps(unsigned char* msg) {
    return parse_cim_fps_msg(std::string(payload_text(msg)));
}

bool cim_parser::parse_cim_fps_msg(const std::string& msg) {
    return read_frame_rates(msg, rate_words::input_and_output, fps, "parse_cim_fps failed!");
}

bool gdc_parser::parse_gdc_fps(unsigned char* msg) {
    return parse_gdc_fps_msg(std::string(payload_text(msg)));
}

bool gdc_parser::parse_gdc_fps_msg(const std::string& msg) {
    return read_frame_rates(msg, rate_words::output_only, fps, "parse_gdc_fps failed!");
}

bool isp_parser::parse_isp_info(unsigned char* msg) {
    const bool done = parse_isp_info_msg(std::string(payload_text(msg)));
    show_isp_info(info);
    return done;
}

bool isp_parser::parse_isp_info_msg(const std::string& msg) {
    return decode("parse_isp_info failed!", [&] {
        // A value holds until the text gives another one. A use case is recorded with all of them.
        isp_info latest;
        text_reader lines(msg);
        for (std::string_view line; lines.next_line(line);) {
            text_reader fields = lines.fields_of(line);
            const std::string_view keyword = first_word(fields);
            if (keyword == "fw_ctx_count") {
                text_reader counts = following_line(lines);
                for (std::uint8_t* count : {&latest.ctx_count, &latest.active, &latest.unactive})
                    if (char c; counts.character(c))
                        *count = static_cast<std::uint8_t>(c);
            } else if (keyword == "dev_sched_mode") {
                text_reader mode = following_line(lines);
                if (std::string_view word; mode.word(word))
                    latest.dev_sched_mode = word;
            } else if (keyword == "isp_pipe") {
                const std::string_view what = first_word(fields);
                if (what == "pipeline_id") {
                    text_reader id = following_line(lines);
                    id.skip_words(1);
                    id.number(latest.pipe_id);
                } else if (what == "usecase") {
                    text_reader usecase = following_line(lines);
                    usecase.skip_words(3);
                    usecase.number(latest.s_Width);
                    usecase.number(latest.s_Height);
                    usecase.number(latest.frame_rate);
                    info.push_back(std::make_shared<isp_info>(latest));
                }
            }
        }
    });
}

bool pym_parser::parse_pym_stat(unsigned char* msg) {
    const bool done = parse_pym_stat_msg(std::string(payload_text(msg)));
    show_pym_stat(stat);
    return done;
}

bool pym_parser::parse_pym_stat_msg(const std::string& msg) {
    return decode("parse_pym_stat failed!", [&] {
        text_reader lines(msg);
        for (std::string_view line; lines.next_line(line);)
            if (line.find('=') != line.npos)
                stat.push_back(read_pyramid(lines));
    });
}

bool vio_info_parser::parse_vio_delay(unsigned char*) {
    std::cout << "parse_vio_delay" << std::endl;
    return true;
}
