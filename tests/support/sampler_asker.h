// Asking the samplers of a machine without a connection.
#ifndef MONCL_TESTS_SAMPLER_ASKER_H
#define MONCL_TESTS_SAMPLER_ASKER_H

#include "sampler.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

/// The samplers over one tree of files.
class sampler_asker {
public:
    explicit sampler_asker(const std::string& root,
                           std::optional<monsrv::simulated_board> board = {})
        : env_(root, board) {
        monsrv::install_samplers(table_, env_);
    }

    /// @return the handler's result, with what it answered in `bytes`
    int ask(int command, int sub_command, const std::string& payload = "",
            std::uint8_t client_id = 1) {
        monsrv::reply answer;
        const auto* data = reinterpret_cast<const unsigned char*>(payload.data());
        const monsrv::request asked{sub_command, client_id, data, payload.size()};
        const monsrv::answering* found = table_.find(command, sub_command);
        const int result = found == nullptr ? -ENOSYS : found->answer(asked, answer);
        bytes.assign(answer.bytes.begin(), answer.bytes.end());
        return result;
    }
    /// The record at byte @p at of the answer.
    template<class Record>
    Record record(std::size_t at) const {
        Record r{};
        if (at + sizeof r <= bytes.size())
            std::memcpy(&r, bytes.data() + at, sizeof r);
        return r;
    }
    void client_gone(std::uint8_t id) const {
        for (std::size_t thread = 0; thread < table_.threads(); ++thread)
            table_.client_gone(id, thread);
    }

    std::string bytes;

private:
    monsrv::host env_;
    monsrv::sampler_table table_;
};

#endif
