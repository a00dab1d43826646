// The machine being sampled: its files, below a root that tests may put elsewhere, and the board
// simulated with it, if any.
#ifndef MONSRV_HOST_H
#define MONSRV_HOST_H

#include "common_func.h"
#include "simulated_board.h"

#include <optional>
#include <string>

namespace monsrv {

/// Reads the files of one machine. Holds the root's name and the board.
class host {
public:
    /// @param root folder to read in place of /
    /// @param board stands in for the hardware this machine lacks
    explicit host(std::string root, std::optional<simulated_board> board = {});

    /// The real path of @p path, which starts with a slash.
    std::string path(const std::string& path) const;

    /// Reads a file from its start to its end, at most `file_limit` bytes.
    /// @return 0, or a negated errno, which leaves @p text empty
    int read(const std::string& path, std::string& text) const;
    /// `read`, keeping the file open for the next time: for files that a kernel never replaces. In
    /// a tree of files any file may be replaced, so there none is kept.
    int read_again(const std::string& path, std::string& text) const;

    /// Whether samples come from the running kernel and not from a tree of files.
    bool is_live() const { return root_.empty(); }

    /// The simulated board, valid as long as the host; null if there is none.
    const simulated_board* board() const { return board_ ? &*board_ : nullptr; }

    /// Most bytes read of a file; above the longest table, of interrupts on some thousand CPUs.
    static constexpr std::size_t file_limit = 1 << 24;

private:
    std::string root_;
    std::optional<simulated_board> board_;
};

} // namespace monsrv

#endif
