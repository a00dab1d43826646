// The table of handlers and the payload they fill.
#include "sampler.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <new>

namespace monsrv {

namespace {
std::vector<sampler_installer>& installers() {
    static std::vector<sampler_installer> all;
    return all;
}
} // namespace

std::int32_t request::number() const {
    return size < 4 ? 0 : static_cast<std::int32_t>(u8_to_u32(payload));
}

data_struct header_of(const std::string& frame) {
    data_struct header{};
    std::memcpy(&header, frame.data(), std::min<std::size_t>(frame.size(), frame_header_size));
    return header;
}

void reply::allow_parts() {
    capacity_ = static_cast<std::size_t>(answer_parts_max) * answer_payload_max;
}

std::size_t reply::room() const {
    return capacity_ - bytes.size();
}

bool reply::add(const void* data, std::size_t size) {
    const std::size_t taken = std::min(size, room());
    const auto* start = static_cast<const unsigned char*>(data);
    bytes.insert(bytes.end(), start, start + taken);
    return taken == size;
}

bool reply::add_lines(std::string_view text) {
    if (text.size() + 1 <= room())
        return add(text.data(), text.size());
    const std::size_t last = room() == 0 ? text.npos : text.rfind('\n', room() - 2);
    if (last != text.npos)
        add(text.data(), last + 1);
    return false;
}

void sampler_table::on(int command, int sub_command, handler answer) {
    handlers_[{command, sub_command}] = {std::move(answer)};
}

void sampler_table::on_slow(std::size_t thread, int command, int sub_command, handler answer,
                            sharing shared) {
    handlers_[{command, sub_command}] = {std::move(answer), thread, shared};
}

void sampler_table::on_client_gone(std::function<void(std::uint8_t)> forget, std::size_t thread) {
    forgetters_.emplace_back(thread, std::move(forget));
}

const answering* sampler_table::find(int command, int sub_command) const {
    auto found = handlers_.find({command, sub_command});
    return found == handlers_.end() ? nullptr : &found->second;
}

std::vector<std::pair<int, int>> sampler_table::requests() const {
    std::vector<std::pair<int, int>> all;
    for (const auto& each : handlers_)
        all.push_back(each.first);
    return all;
}

void sampler_table::client_gone(std::uint8_t client_id, std::size_t thread) const {
    for (const auto& [its_thread, forget] : forgetters_)
        if (its_thread == thread)
            forget(client_id);
}

int run_handler(const handler& answer, const request& asked, reply& answered) {
    try {
        return answer(asked, answered);
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    } catch (const std::exception&) {
        return -EIO;
    }
}

handler shared_briefly(const host& env, handler answer) {
    using clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds shared_for{2};
    struct latest {
        clock::time_point time{};
        reply answer;
    };
    return [live = env.is_live(), answer = std::move(answer),
            known = std::make_shared<latest>()](const request& asked, reply& answered) {
        if (live && clock::now() - known->time < shared_for) {
            answered = known->answer;
            return 0;
        }
        const int result = answer(asked, answered);
        if (live && result == 0)
            *known = {clock::now(), answered};
        return result;
    };
}

sampler_registration::sampler_registration(sampler_installer install) {
    installers().push_back(install);
}

void install_samplers(sampler_table& table, const host& env) {
    for (sampler_installer install : installers())
        install(table, env);
}

} // namespace monsrv
