// Video pipeline queries and the merged frame-rate table.
#include "vio_info_manager.h"

#include "platform_log.h"
#include "request_numbers.h"

#include <algorithm>
#include <iomanip>

using ns_req_template::request_handler;

namespace {
constexpr const char* connect_failure = "VIO connect to server failed";

int refuse(const request_handler& handler, int sub_command) {
    handler.log_failure("Isp sub_command error with %d\n", sub_command);
    return -1;
}

// The text of an answer, all packets of it; null, with the code in `result`, if that failed.
unsigned char* whole_text(request_handler& handler, int& result) {
    data_struct* answer = handler.client->get_recv_data();
    result = 0;
    if (answer->msg_len <= answer_payload_max)
        return answer->msg;
    result = handler.receive_parts();
    if (result < 0) {
        handler.log_failure("Receive more message error with %d\n", result);
        return nullptr;
    }
    return handler.joined_parts.data();
}

void add_column(std::vector<std::string>& columns, const std::string& name) {
    if (std::find(columns.begin(), columns.end(), name) == columns.end())
        columns.push_back(name);
}

const pipe_fps* find_pipe(const fps_map& fps, std::uint16_t pipe) {
    auto found = fps.find(pipe);
    return found == fps.end() ? nullptr : found->second.get();
}

void show_cell(const pipe_fps* rates, std::ostream& out) {
    out << std::left;
    if (rates == nullptr)
        out << std::setw(14) << "x";
    else
        out << std::setw(2) << rates->input_fps << "=>" << std::setw(10) << rates->output_fps;
}
} // namespace

// The answer's sub-command, not the request's, decides how it is read.

template<>
int request_handler::handle_request(std::shared_ptr<isp_parser> parser) {
    data_struct* answer = client->get_recv_data();
    int result = 0;
    switch (answer->sub_command) {
    case video_request::isp_information:
    case video_request::isp_information + 1:
        if (unsigned char* text = whole_text(*this, result))
            parser->parse_isp_info(text);
        return result;
    case video_request::isp_rates:
    case video_request::isp_rates + 1:
        parser->parse_isp_fps(answer->msg);
        return 0;
    default:
        return refuse(*this, answer->sub_command);
    }
}

template<>
int request_handler::handle_request(std::shared_ptr<pym_parser> parser) {
    data_struct* answer = client->get_recv_data();
    int result = 0;
    switch (answer->sub_command) {
    case video_request::pym_statistics:
    case video_request::pym_statistics + 1:
    case video_request::pym_statistics + 2:
        if (unsigned char* text = whole_text(*this, result))
            parser->parse_pym_stat(text);
        return result;
    case video_request::pym_rates:
    case video_request::pym_rates + 1:
    case video_request::pym_rates + 2:
        parser->parse_pym_fps(answer->msg);
        return 0;
    default:
        return refuse(*this, answer->sub_command);
    }
}

template<>
int request_handler::handle_request(std::shared_ptr<cim_parser> parser) {
    data_struct* answer = client->get_recv_data();
    if (answer->sub_command != video_request::cim_rates &&
        answer->sub_command != video_request::cim_rates + 1)
        return refuse(*this, answer->sub_command);
    parser->parse_cim_fps(answer->msg);
    return 0;
}

template<>
int request_handler::handle_request(std::shared_ptr<gdc_parser> parser) {
    data_struct* answer = client->get_recv_data();
    if (answer->sub_command != video_request::gdc_rates)
        return refuse(*this, answer->sub_command);
    parser->parse_gdc_fps(answer->msg);
    return 0;
}

template<>
int request_handler::handle_request(std::shared_ptr<vio_info_parser>) {
    data_struct* answer = client->get_recv_data();
    if (answer->sub_command != video_request::delay)
        return refuse(*this, answer->sub_command);
    vio_info_parser::parse_vio_delay(answer->msg);
    return 0;
}

// No query of this manager has a report: its decoders print what they decoded.
template<>
void request_handler::show_result(std::shared_ptr<isp_parser>, std::ostream&) {}
template<>
void request_handler::show_result(std::shared_ptr<pym_parser>, std::ostream&) {}
template<>
void request_handler::show_result(std::shared_ptr<cim_parser>, std::ostream&) {}
template<>
void request_handler::show_result(std::shared_ptr<gdc_parser>, std::ostream&) {}
template<>
void request_handler::show_result(std::shared_ptr<vio_info_parser>, std::ostream&) {}

vio_info_manager::vio_info_manager()
    : isp_parse(std::make_shared<isp_parser>()), pym_parse(std::make_shared<pym_parser>()),
      cim_parse(std::make_shared<cim_parser>()), gdc_parse(std::make_shared<gdc_parser>()) {
    request_cmd = video_command;
    manager = this;
    log_tag = "MONCL_VIO";
}

vio_info_manager::vio_info_manager(std::shared_ptr<client_comm> comm) : vio_info_manager() {
    connect(std::move(comm), connect_failure);
}

vio_info_manager::vio_info_manager(const std::string& ip, int port) : vio_info_manager() {
    connect(std::make_shared<client_comm>(ip, port), connect_failure);
}

template<class Records>
void vio_info_manager::empty(Records& records) {
    std::lock_guard<std::mutex> lock(req_lock);
    records.clear();
}

fps_map vio_info_manager::copy_of(const fps_map& fps) {
    std::lock_guard<std::mutex> lock(req_lock);
    return fps;
}

template<class Parser>
int vio_info_manager::ask_each(std::initializer_list<int> sub_commands,
                               const std::shared_ptr<Parser>& parser) {
    for (int sub_command : sub_commands)
        if (const int r = get_sys_info(sub_command, parser, nullptr); r != 0)
            return r;
    return 0;
}

int vio_info_manager::get_isp_info() {
    empty(isp_parse->info);
    return ask_each({video_request::isp_information, video_request::isp_information + 1},
                    isp_parse);
}

int vio_info_manager::get_isp_fps() {
    empty(isp_parse->fps);
    return ask_each({video_request::isp_rates, video_request::isp_rates + 1}, isp_parse);
}

int vio_info_manager::get_cim_fps() {
    empty(cim_parse->fps);
    return ask_each({video_request::cim_rates, video_request::cim_rates + 1}, cim_parse);
}

int vio_info_manager::get_pym_fps() {
    empty(pym_parse->fps);
    return ask_each(
        {video_request::pym_rates, video_request::pym_rates + 1, video_request::pym_rates + 2},
        pym_parse);
}

int vio_info_manager::get_gdc_fps() {
    empty(gdc_parse->fps);
    return ask_each({video_request::gdc_rates}, gdc_parse);
}

int vio_info_manager::get_pym_stat() {
    empty(pym_parse->stat);
    return ask_each({video_request::pym_statistics, video_request::pym_statistics + 1,
                     video_request::pym_statistics + 2},
                    pym_parse);
}

int vio_info_manager::get_vio_delay() {
    return ask_each({video_request::delay}, vio_parser);
}

int vio_info_manager::sort_all_vio_fps(std::ostream* os) {
    if (os == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, log_tag, "sort_all_vio_fps outstream null\n");
        return -1;
    }
    std::vector<std::string> columns{"PIPE/IP"};
    std::vector<std::uint16_t> pipes;
    get_cim_fps();
    const fps_map cim_fps = copy_of(cim_parse->fps);
    for (const auto& [pipe, rates] : cim_fps) {
        pipes.push_back(pipe);
        add_column(columns, rates->ip_name);
    }
    get_isp_fps();
    const fps_map isp_fps = copy_of(isp_parse->fps);
    for (const auto& [pipe, rates] : isp_fps)
        add_column(columns, rates->ip_name.substr(0, rates->ip_name.find('(')));
    get_pym_fps();
    const fps_map pym_fps = copy_of(pym_parse->fps);
    for (const auto& [pipe, rates] : pym_fps)
        add_column(columns, rates->ip_name);

    for (const std::string& column : columns)
        *os << std::left << std::setw(14) << column;
    *os << std::endl;
    std::sort(pipes.begin(), pipes.end());
    for (std::uint16_t pipe : pipes) {
        const pipe_fps* isp = find_pipe(isp_fps, pipe);
        const pipe_fps* cim = find_pipe(cim_fps, pipe);
        const pipe_fps* pym = find_pipe(pym_fps, pipe);
        *os << "pipe" << std::left << std::setw(10) << pipe;
        for (auto column = columns.begin() + 1; column != columns.end(); ++column) {
            // The column of an ISP is its name without the suffix, so the name only contains it.
            const pipe_fps* rates = nullptr;
            if (isp != nullptr && isp->ip_name.find(*column) != std::string::npos)
                rates = isp;
            else if (cim != nullptr && cim->ip_name == *column)
                rates = cim;
            else if (pym != nullptr && pym->ip_name == *column)
                rates = pym;
            show_cell(rates, *os);
        }
        *os << std::endl;
    }
    return static_cast<int>(pipes.size());
}
