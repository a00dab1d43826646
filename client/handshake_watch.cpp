// Reading the events of a socket's monitor.
#include "handshake_watch.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>
#include <zmq.h>

bool handshake_watch::start(void* context, void* socket, bool encrypts) {
    constexpr const char* endpoint = "inproc://handshake";
    constexpr int wanted = ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                           ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH;
    stop();
    outcome = handshake::unknown;
    status = 0;
    encrypted = encrypts;
    events = zmq_socket(context, ZMQ_PAIR);
    if (events == nullptr)
        return false;
    // With a limit, libzmq's own thread would wait for somebody to read the events.
    const int no_limit = 0;
    if (zmq_setsockopt(events, ZMQ_RCVHWM, &no_limit, sizeof no_limit) == 0 &&
        zmq_socket_monitor(socket, endpoint, wanted) == 0 && zmq_connect(events, endpoint) == 0) {
        watched = socket;
        return true;
    }
    const int reason = errno;
    zmq_socket_monitor(socket, nullptr, 0);
    zmq_close(std::exchange(events, nullptr));
    errno = reason;
    return false;
}

void handshake_watch::stop() {
    if (events == nullptr)
        return;
    // In this order: the monitor would wait for a reader that is gone.
    zmq_socket_monitor(std::exchange(watched, nullptr), nullptr, 0);
    zmq_close(std::exchange(events, nullptr));
}

handshake handshake_watch::read() {
    unsigned char event[6]; // its number, 2 bytes, and a value that depends on it, 4 bytes
    while (events != nullptr && zmq_recv(events, event, sizeof event, ZMQ_DONTWAIT) != -1) {
        std::uint16_t number;
        std::uint32_t value;
        std::memcpy(&number, event, sizeof number);
        std::memcpy(&value, event + sizeof number, sizeof value);
        char address[1]; // not wanted; cut off
        zmq_recv(events, address, sizeof address, 0);
        take(number, value);
    }
    return outcome;
}

void handshake_watch::note_answer() {
    outcome = handshake::done;
    stop();
}

// A handshake that was only broken off is tried again by libzmq, and the next try may say more: a
// mechanism that does not fit is broken off, too, where the server is the first to notice it.
void handshake_watch::take(unsigned event, unsigned value) {
    switch (event) {
    case ZMQ_EVENT_HANDSHAKE_SUCCEEDED:
        outcome = handshake::done;
        break;
    case ZMQ_EVENT_HANDSHAKE_FAILED_AUTH:
        outcome = handshake::key_refused;
        status = static_cast<int>(value);
        break;
    case ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL:
        outcome = value != ZMQ_PROTOCOL_ERROR_ZMTP_MECHANISM_MISMATCH ? handshake::failed
                  : encrypted                                         ? handshake::not_encrypted
                                                                      : handshake::needs_encryption;
        break;
    default:
        outcome = handshake::broken_off;
        return;
    }
    stop();
}
