// The text formats of a board's figures.
#include "board_answer.h"

#include <cerrno>
#include <iomanip>
#include <locale>
#include <sstream>

namespace monsrv {

namespace {
// Numbers are for a machine to read, whatever the process's locale is.
std::ostringstream plain_text() {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    return out;
}

void add_registers(const std::vector<std::uint32_t>& registers, std::ostream& out) {
    constexpr std::size_t row = 4;
    out << std::hex << std::setfill('0');
    for (std::size_t i = 0; i < registers.size(); ++i) {
        if (i % row == 0)
            out << "reg 0x" << std::setw(4) << i * sizeof registers[i] << ":";
        out << " 0x" << std::setw(8) << registers[i];
        if (i % row == row - 1 || i + 1 == registers.size())
            out << "\n";
    }
    out << std::dec;
}
} // namespace

std::string load_text(unsigned permille) {
    return std::to_string(permille / 10) + "." + std::to_string(permille % 10) + "\n";
}

std::string rate_text(const std::vector<block_rate>& rates) {
    auto out = plain_text();
    for (const block_rate& at : rates)
        out << at.name << " pipe " << at.pipe << " input frame rate " << at.input
            << " output frame rate " << at.output << "\n";
    return out.str();
}

std::string output_rate_text(const std::vector<block_rate>& rates) {
    auto out = plain_text();
    for (const block_rate& at : rates)
        out << at.name << " pipe " << at.pipe << " output rate " << at.output << "\n";
    return out.str();
}

std::string isp_text(const isp_state& isp) {
    auto out = plain_text();
    out << "fw_ctx_count active unactive\n"
        << isp.contexts << " " << isp.active_contexts << " " << isp.contexts - isp.active_contexts
        << "\ndev_sched_mode\n"
        << isp.schedule << "\n";
    add_registers(isp.registers, out);
    for (const isp_state::use_case& each : isp.use_cases)
        out << "isp_pipe pipeline_id\n"
            << "id: " << each.pipe << "\n"
            << "isp_pipe usecase\n"
            << "width height rate: " << each.mode.width << " " << each.mode.height << " "
            << each.mode.rate << "\n";
    return out.str();
}

std::string pyramid_text(const pyramid_state& pym) {
    auto out = plain_text();
    // Clients read the hardware's count before its label, and the two others after theirs.
    out << "==== pyramid ====\n"
        << "mode: " << pym.mode << " width: " << pym.input.width << " height: " << pym.input.height
        << "\n"
        << pym.hardware_drops << " hw_drop_cnt: frames, isp drop cnt: " << pym.isp_drops << "\n"
        << "sw drop cnt: " << pym.software_drops << "\n";
    return out.str();
}

void answer_from_board(sampler_table& table, const host& env, int command, int sub_command,
                       std::function<std::string(const board_figures&)> text, bool parts) {
    table.on(command, sub_command,
             [&env, text = std::move(text), parts](const request&, reply& answer) {
                 if (env.board() == nullptr)
                     return -ENODEV;
                 if (parts)
                     answer.allow_parts();
                 answer.add_lines(text(env.board()->now()));
                 return 0;
             });
}

} // namespace monsrv
