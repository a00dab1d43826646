// What a front end does when a query fails: find out whose failure it is, start over on a new
// socket, leave.
//
//     const int code = manager.get_cpu_usage(&report);
//     if (code < 0 && !answered(*manager.client, code))
//         start_over(*manager.client);
//
// Like the connection itself, none of these may run beside a query over the same connection.
#ifndef MONCL_RECOVERY_H
#define MONCL_RECOVERY_H

#include "client_comm.h"

/// Whether the negative @p code of the latest query over @p connection is the server's own answer,
/// which leaves the connection as good as before; otherwise the code is the connection's, or a
/// decoder's, and starting over helps. A sum of codes is taken for the connection's: ask for one
/// process at a time where that matters.
MONCL_API bool answered(client_comm& connection, int code);

/// Closes the socket of @p connection and drops what is unsent, without waiting for the server. The
/// client id stays held. Does nothing if no socket is open.
/// @return 0, or -1 if closing failed, which has been logged
MONCL_API int close_at_once(client_comm& connection);

/// Puts @p connection on a new socket: `close_at_once`, then `connect_to_server`. While the process
/// holds a client id, nothing is asked, so 0 does not say that the server is there. Call it again
/// and again to wait for a server.
/// @return 0, or the negative code of `connect_to_server`, after at most 1000 ms. A failure leaves
///         no socket: a request for a client id that stayed on it would be delivered to a server
///         that starts later, and take an id that nobody holds
MONCL_API int start_over(client_comm& connection);

/// Gives the process's client id back and closes the socket of @p connection, to be called for the
/// last connection in use.
/// @return 0, or the negative code of `back_client_id`, after at most 1000 ms: the socket is closed
///         all the same, and the id stays with the server
MONCL_API int leave(client_comm& connection);

#endif
