// What monsrv gives up of the rights that it was started with.
#ifndef MONSRV_PROGRAM_RIGHTS_H
#define MONSRV_PROGRAM_RIGHTS_H

#include <string>

namespace monsrv {

/// What a server needs to keep.
struct rights_wanted {
    std::string user; ///< whom a server started as root becomes; empty: see `default_user`
    bool all_processes = false; ///< figures that the kernel keeps from other users
    bool low_port = false;      ///< listening at a port that only root may take
};

/// "monsrv" if this host has that user, else "nobody".
std::string default_user();

/// Becomes the user that is wanted and drops every capability but those that @p wanted is about, so
/// that the kernel refuses what it keeps from that user. A process that was not started as root
/// stays the user that it is. Must be called before the process starts threads: each thread has
/// capabilities of its own.
/// @return one line that says what the process may do now; empty if it gave up nothing
/// @throws std::system_error or std::runtime_error if it cannot become that user
std::string give_up_rights(const rights_wanted& wanted);

} // namespace monsrv

#endif
