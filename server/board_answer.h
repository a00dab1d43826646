// Answers from the figures of a board, as the text that clients decode.
#ifndef MONSRV_BOARD_ANSWER_H
#define MONSRV_BOARD_ANSWER_H

#include "sampler.h"
#include "simulated_board.h"

#include <functional>
#include <string>
#include <vector>

namespace monsrv {

/// The load of an accelerator core, in percent.
std::string load_text(unsigned permille);
/// A line of eleven words for each pipe; third the pipe, seventh its input rate, last its output
/// rate.
std::string rate_text(const std::vector<block_rate>& rates);
/// A line of six words for each pipe; third the pipe, last its output rate.
std::string output_rate_text(const std::vector<block_rate>& rates);
/// Contexts, scheduling mode, registers and use cases of an image signal processor: keyword lines,
/// each followed by a line of figures.
std::string isp_text(const isp_state& isp);
/// The four lines of a pyramid scaler.
std::string pyramid_text(const pyramid_state& pym);

/// Answers @p command and @p sub_command with a text of the board's figures, -ENODEV if @p env has
/// no board.
/// @param parts let the text be longer than one packet
void answer_from_board(sampler_table& table, const host& env, int command, int sub_command,
                       std::function<std::string(const board_figures&)> text, bool parts = false);

} // namespace monsrv

#endif
