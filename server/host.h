// The machine being sampled: its files, below a root that tests may put elsewhere.
#ifndef MONSRV_HOST_H
#define MONSRV_HOST_H

#include "common_func.h"

#include <string>

namespace monsrv {

/// Reads the files of one machine. Holds nothing but the root's name.
class host {
public:
    /// @param root folder to read in place of /
    explicit host(std::string root);

    /// The real path of @p path, which starts with a slash.
    std::string path(const std::string& path) const;

    /// Reads a file from its start to its end, at most `file_limit` bytes.
    /// @return 0, or a negated errno, which leaves @p text empty
    int read(const std::string& path, std::string& text) const;
    /// `read`, keeping the file open for the next time: for files that are never replaced.
    int read_again(const std::string& path, std::string& text) const;

    /// Whether the host's own kernel is the one sampled, and not a tree of files.
    bool is_live() const { return root_.empty(); }

    /// Most bytes read of a file; well above what one answer can hold.
    static constexpr std::size_t file_limit = 1 << 20;

private:
    std::string root_;
};

} // namespace monsrv

#endif
