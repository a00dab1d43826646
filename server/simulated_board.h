// A board that is not there: figures of an accelerator, a video pipeline, sensors and heaps, to try
// clients with on any machine.
//
//     simulated_board board(1);
//     unsigned load = board.now().nnu_load[0];
#ifndef MONSRV_SIMULATED_BOARD_H
#define MONSRV_SIMULATED_BOARD_H

#include "common_func.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace monsrv {

/// Frame rates of one pipe at one block.
struct block_rate {
    std::string name; ///< the block's instance
    std::uint16_t pipe;
    std::uint16_t input;  ///< frames in the last second
    std::uint16_t output; ///< frames in the last second
};

/// What a camera is set to deliver.
struct camera_mode {
    std::uint32_t width;  ///< pixels
    std::uint32_t height; ///< pixels
    std::uint16_t rate;   ///< frames per second
};

/// One image signal processor. Its counts have one digit: clients read no more.
struct isp_state {
    struct use_case {
        std::uint16_t pipe;
        camera_mode mode;
    };
    unsigned contexts; ///< of the firmware
    unsigned active_contexts;
    std::string schedule; ///< how its pipes share it, one word
    std::vector<use_case> use_cases;
    std::vector<std::uint32_t> registers; ///< its debug output; may be empty
    std::vector<block_rate> rates;
};

/// One pyramid scaler.
struct pyramid_state {
    unsigned mode; ///< one digit
    camera_mode input;
    std::uint64_t hardware_drops; ///< frames since the board's start; so the others
    std::uint64_t software_drops;
    std::uint64_t isp_drops;
    std::vector<block_rate> rates;
};

/// All figures of a board at one moment.
struct board_figures {
    std::array<unsigned, 2> nnu_load; ///< 1/1000 of each accelerator core
    std::array<std::vector<block_rate>, 2> cim;
    std::array<isp_state, 2> isp;
    std::array<pyramid_state, 3> pym;
    std::vector<block_rate> gdc;
    std::vector<std::uint64_t> temperatures; ///< 1/1000 degree Celsius of each thermal zone
    std::vector<std::uint64_t> cooling;      ///< state of each cooling device
    std::vector<ion_info> heaps;
};

/// A pure function of its seed and the time. Threads may share it.
class simulated_board {
public:
    explicit simulated_board(std::uint64_t seed) : seed_(seed) {}
    /// A board whose time stands still at @p uptime.
    simulated_board(std::uint64_t seed, std::chrono::milliseconds uptime)
        : seed_(seed), stands_at_(uptime) {}

    /// The figures @p uptime after the board's start; a negative time counts as 0.
    board_figures at(std::chrono::milliseconds uptime) const;
    /// The figures now: the board started with this machine.
    board_figures now() const;

private:
    std::uint64_t seed_;
    std::optional<std::chrono::milliseconds> stands_at_;
};

/// The notice that a program which simulates a board shows its user.
inline constexpr std::string_view simulation_notice =
    "accelerator and video pipeline are simulated, and so are temperatures, cooling and ion heaps "
    "if this host has none";

} // namespace monsrv

#endif
