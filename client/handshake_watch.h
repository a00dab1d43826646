// Why a socket does not get through to its server: the outcome of the handshakes that libzmq does
// by itself, taken from the socket's monitor.
#ifndef MONCL_HANDSHAKE_WATCH_H
#define MONCL_HANDSHAKE_WATCH_H

#include "client_comm.h"

/// Watches the handshakes of one socket until the outcome is certain. Belongs to the thread of the
/// connection.
class handshake_watch {
public:
    handshake_watch() = default;
    ~handshake_watch() { stop(); }
    handshake_watch(const handshake_watch&) = delete;
    handshake_watch& operator=(const handshake_watch&) = delete;

    /// Watches @p socket of @p context from now on; call it before the socket connects.
    /// @param encrypts whether the socket has keys
    /// @return whether that succeeded; if not, errno says why
    bool start(void* context, void* socket, bool encrypts);
    /// Ends the watching; call it before the socket is closed. `outcome` stays.
    void stop();
    /// Takes in what has happened since the last call.
    handshake read();
    /// The server has answered, so the handshake is done: ends the watching.
    void note_answer();

    handshake outcome = handshake::unknown;
    int status = 0; ///< of a refused key: 400, or 500 if the server could not judge it

private:
    void take(unsigned event, unsigned value);

    void* watched = nullptr;
    void* events = nullptr; ///< null while nothing is watched
    bool encrypted = false;
};

#endif
