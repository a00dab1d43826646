// The simulated figures. Everything random is a hash of the seed, of what it is for and of a
// stretch of time, so that no figure depends on when, or how often, others were asked.
#include "simulated_board.h"

#include <algorithm>
#include <optional>

namespace monsrv {

namespace {
using std::chrono::milliseconds;

// What a hash is for.
enum class use : std::uint64_t {
    nnu_load,
    camera,
    camera_loss,
    cim_loss,
    isp_loss,
    pym_hardware_loss,
    pym_software_loss,
    gdc_loss,
    context,
    schedule,
    pym_mode,
    registers,
    temperature,
    heap
};

std::uint64_t scramble(std::uint64_t x) { // splitmix64
    x += 0x9E3779B97F4A7C15;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
    return x ^ (x >> 31);
}

constexpr camera_mode camera_modes[] = {
    {1920, 1080, 30}, {3840, 2160, 30}, {1280, 960, 30}, {1920, 1536, 25}, {1280, 720, 60}};
constexpr const char* schedules[] = {"offline", "online", "interleaved"};
constexpr const char* heap_names[] = {"carveout", "cma_reserved", "custom", "system"};

// Where the frames of a pipe go. Cameras that process their images themselves pass by the image
// signal processors, and only wide lenses need their distortion corrected.
struct route {
    std::size_t cim;
    std::optional<std::size_t> isp;
    std::size_t pym;
    bool gdc;
};
constexpr route routes[] = {{0, 0, 0, true},   {0, 0, 0, false}, {0, 0, 1, false},
                            {0, 0, 1, true},   {1, 1, 1, false}, {1, 1, 2, true},
                            {1, {}, 2, false}, {1, {}, 2, false}};

/// One seed at one moment.
class moment {
public:
    moment(std::uint64_t seed, milliseconds uptime)
        : seed_(seed), ms_(static_cast<std::uint64_t>(std::max<long long>(0, uptime.count()))) {}

    board_figures figures() const {
        board_figures all{};
        all.nnu_load = {100 + wave(use::nnu_load, 0, 4000, 880), wave(use::nnu_load, 1, 6000, 600)};
        for (std::size_t i = 0; i < all.isp.size(); ++i)
            set_up(all.isp[i], i);
        for (std::size_t i = 0; i < all.pym.size(); ++i)
            all.pym[i].mode = static_cast<unsigned>(hash(use::pym_mode, i) % 5);
        for (std::size_t pipe = 0; pipe < std::size(routes); ++pipe)
            add_pipe(all, pipe);
        add_sensors(all);
        for (std::size_t i = 0; i < std::size(heap_names); ++i)
            all.heaps.push_back(heap(i));
        return all;
    }

private:
    std::uint64_t hash(use what, std::uint64_t which, std::uint64_t stretch = 0) const {
        return scramble(scramble(scramble(seed_) + static_cast<std::uint64_t>(what)) +
                        scramble(which) + stretch);
    }

    // A steady figure from 0 to @p top: straight from one random value to the next.
    unsigned wave(use what, std::uint64_t which, std::uint64_t period_ms, unsigned top) const {
        const std::uint64_t index = ms_ / period_ms;
        const std::uint64_t part = ms_ % period_ms;
        const std::uint64_t before = hash(what, which, index) % (top + 1);
        const std::uint64_t after = hash(what, which, index + 1) % (top + 1);
        return static_cast<unsigned>((before * (period_ms - part) + after * part) / period_ms);
    }

    // Frames lost for one reason until the time @p ms: one in every stretch, at a random point.
    std::uint64_t losses(use why, std::uint64_t pipe, std::uint64_t ms) const {
        const std::uint64_t stretch_ms = 4000 + hash(why, pipe) % 16000;
        const std::uint64_t index = ms / stretch_ms;
        return index + (ms % stretch_ms >= hash(why, pipe, index) % stretch_ms ? 1 : 0);
    }
    std::uint64_t losses(use why, std::uint64_t pipe) const { return losses(why, pipe, ms_); }
    // Frames that are left of @p rate after the losses of the last second.
    std::uint16_t passing(std::uint16_t rate, use why, std::uint64_t pipe) const {
        const std::uint64_t lost =
            losses(why, pipe) - losses(why, pipe, ms_ - std::min<std::uint64_t>(ms_, 1000));
        return static_cast<std::uint16_t>(rate - std::min<std::uint64_t>(lost, rate));
    }

    void set_up(isp_state& isp, std::size_t which) const {
        isp.contexts = 6;
        // Besides its pipes, an application that comes and goes.
        isp.active_contexts = static_cast<unsigned>(hash(use::context, which, ms_ / 15000) % 2);
        isp.schedule = schedules[hash(use::schedule, which) % std::size(schedules)];
        // The second one runs with debug output, which no single frame can hold.
        if (which == 1)
            for (std::uint64_t i = 0; i < 1024; ++i)
                isp.registers.push_back(
                    static_cast<std::uint32_t>(hash(use::registers, i, i < 64 ? ms_ / 1000 : 0)));
    }

    void add_pipe(board_figures& all, std::size_t which) const {
        const route& way = routes[which];
        const auto pipe = static_cast<std::uint16_t>(which);
        const camera_mode& mode = camera_modes[hash(use::camera, pipe) % std::size(camera_modes)];
        std::uint16_t rate = passing(mode.rate, use::camera_loss, pipe);
        const auto pass = [&](const std::string& name, use why, std::vector<block_rate>& rates) {
            const std::uint16_t left = passing(rate, why, pipe);
            rates.push_back({name, pipe, rate, left});
            rate = left;
        };
        pass("cim" + std::to_string(way.cim), use::cim_loss, all.cim[way.cim]);
        if (way.isp) {
            isp_state& isp = all.isp[*way.isp];
            ++isp.active_contexts;
            isp.use_cases.push_back({pipe, mode});
            pass("isp" + std::to_string(*way.isp) + "(ctx" +
                     std::to_string(isp.use_cases.size() - 1) + ")",
                 use::isp_loss, isp.rates);
        }
        pyramid_state& pym = all.pym[way.pym];
        if (pym.rates.empty())
            pym.input = mode;
        pym.hardware_drops += losses(use::pym_hardware_loss, pipe);
        pym.software_drops += losses(use::pym_software_loss, pipe);
        pym.isp_drops += way.isp ? losses(use::isp_loss, pipe) : 0;
        const std::uint16_t kept = passing(rate, use::pym_hardware_loss, pipe);
        pym.rates.push_back({"pym" + std::to_string(way.pym), pipe, rate,
                             passing(kept, use::pym_software_loss, pipe)});
        rate = pym.rates.back().output;
        if (way.gdc)
            pass("gdc0", use::gdc_loss, all.gdc);
    }

    // Both accelerator cores and the image processors are cooled in steps, as their zone warms up.
    void add_sensors(board_figures& all) const {
        for (std::uint64_t zone = 0; zone < 3; ++zone)
            all.temperatures.push_back(41000 + wave(use::temperature, zone, 30000, 45000));
        for (std::size_t i = 0; i < 2; ++i)
            all.cooling.push_back((std::max<std::uint64_t>(all.temperatures[i], 55000) - 55000) /
                                  8000);
    }

    ion_info heap(std::size_t which) const {
        constexpr std::uint64_t page_size = 4096;
        ion_info info{};
        std::string_view(heap_names[which]).copy(info.ion_name, sizeof info.ion_name - 1);
        info.used = page_size * (512 + wave(use::heap, which, 10000, 60000));
        return info;
    }

    std::uint64_t seed_;
    std::uint64_t ms_;
};
} // namespace

board_figures simulated_board::at(milliseconds uptime) const {
    return moment(seed_, uptime).figures();
}

board_figures simulated_board::now() const {
    if (stands_at_)
        return at(*stands_at_);
    // The steady clock counts from the machine's start, as counters of a board would.
    return at(std::chrono::duration_cast<milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch()));
}

} // namespace monsrv
