// Granting and taking back client ids.
#include "client_ids.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace monsrv {

std::uint8_t client_ids::grant(const std::string& peer, clock::time_point now) {
    if (const std::uint8_t held = held_by(peer); held != 0)
        return held;
    slot* best = nullptr;
    for (auto each = slots_.begin() + 1; each != slots_.end(); ++each)
        if (each->holder.empty() && (best == nullptr || each->free_since < best->free_since))
            best = each;
    if (best == nullptr) {
        const auto abandoned = std::find_if(slots_.begin() + 1, slots_.end(), [now](const slot& s) {
            return now - s.last_seen > lease;
        });
        if (abandoned == slots_.end())
            return 0;
        free(*abandoned, now);
        best = abandoned;
    }
    best->other.clear();
    best->is_counting = false;
    hold(*best, peer, now);
    return static_cast<std::uint8_t>(best - slots_.begin());
}

void client_ids::seen(std::uint8_t id, const std::string& peer, clock::time_point now) {
    if (id == 0)
        return;
    slot& used = slots_[id];
    used.last_seen = now;
    if (used.holder == peer)
        return;
    if (!used.holder.empty())
        used.other = peer;
    else if (held_by(peer) == 0)
        hold(used, peer, now);
    else
        forget_later(used, now);
}

int client_ids::give_back(std::uint8_t id, const std::string& peer, clock::time_point now) {
    slot& given = slots_[id];
    if (given.holder.empty())
        return -EINVAL;
    if (given.holder != peer)
        return -EACCES;
    free(given, now);
    given.is_counting = false;
    given.forget_at.reset();
    return 0;
}

bool client_ids::may_switch_counting(std::uint8_t id, const std::string& peer) const {
    const slot& of = slots_[id];
    return !of.is_counting || of.counts.empty() || of.counts == peer || of.holder == peer;
}

void client_ids::counting_switched(std::uint8_t id, const std::string& peer, bool on) {
    slot& of = slots_[id];
    of.is_counting = on;
    of.counts = peer;
    if (on)
        of.forget_at.reset();
}

void client_ids::gone(const std::string& peer, clock::time_point now) {
    for (slot& each : slots_) {
        const bool counted = each.is_counting && each.counts == peer;
        if (each.other == peer)
            each.other.clear();
        if (each.holder == peer) {
            const std::string other = std::exchange(each.other, {});
            free(each, now);
            if (!other.empty() && held_by(other) == 0)
                hold(each, other, now);
            else
                forget_later(each, now);
        } else if (counted && each.holder.empty()) {
            forget_later(each, now);
        }
        if (counted)
            each.counts = each.holder;
    }
}

std::vector<std::uint8_t> client_ids::take_forgotten(clock::time_point now) {
    std::vector<std::uint8_t> ids;
    if (now < due_)
        return ids;
    due_ = clock::time_point::max();
    for (std::size_t id = 0; id < slots_.size(); ++id) {
        slot& each = slots_[id];
        if (!each.forget_at || now < *each.forget_at) {
            due_ = std::min(due_, each.forget_at.value_or(due_));
            continue;
        }
        each.forget_at.reset();
        each.is_counting = false;
        ids.push_back(static_cast<std::uint8_t>(id));
    }
    return ids;
}

std::uint8_t client_ids::held_by(const std::string& peer) const {
    const auto found = std::find_if(slots_.begin(), slots_.end(),
                                    [&peer](const slot& each) { return each.holder == peer; });
    return found == slots_.end() ? 0 : static_cast<std::uint8_t>(found - slots_.begin());
}

void client_ids::hold(slot& held, const std::string& peer, clock::time_point now) {
    held.holder = peer;
    held.last_seen = now;
    held.forget_at.reset();
    if (held.counts.empty())
        held.counts = peer;
    ++held_;
}

void client_ids::free(slot& freed, clock::time_point now) {
    freed.holder.clear();
    freed.free_since = now;
    --held_;
}

void client_ids::forget_later(slot& of, clock::time_point now) {
    of.forget_at = now + grace;
    due_ = std::min(due_, *of.forget_at);
}

} // namespace monsrv
