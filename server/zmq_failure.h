// Failures of ZeroMQ calls as exceptions.
#ifndef MONSRV_ZMQ_FAILURE_H
#define MONSRV_ZMQ_FAILURE_H

#include <string>

namespace monsrv {

/// Throws std::system_error with the text of @p error, an errno or one of ZeroMQ's own numbers.
[[noreturn]] void throw_zmq_error(int error, const std::string& what);

} // namespace monsrv

#endif
