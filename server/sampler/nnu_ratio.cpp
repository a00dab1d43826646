// Load of the two cores of the neural-network accelerator.
#include "board_answer.h"

namespace monsrv {
namespace {

void install(sampler_table& table, const host& env) {
    for (int core = 0; core < accelerator_request::load_count; ++core)
        answer_from_board(table, env, accelerator_command, accelerator_request::load + core,
                          [core](const board_figures& figures) {
                              return load_text(figures.nnu_load.at(static_cast<std::size_t>(core)));
                          });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
