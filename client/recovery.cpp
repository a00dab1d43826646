// Starting over on a new socket, and whose failure a negative code is.
#include "recovery.h"

#include <zmq.h>

bool answered(client_comm& connection, int code) {
    return connection.was_refused() && connection.get_recv_data()->msg_len == code;
}

int close_at_once(client_comm& connection) {
    void* socket = connection.get_socket();
    if (socket == nullptr)
        return 0;
    const int linger_ms = 0; // else closing waits for a server that may never be back
    zmq_setsockopt(socket, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
    int result = connection.close_connect();
    // The socket is closed, but a signal interrupted the termination of the context.
    for (int i = 0; i < 100 && result < 0 && connection.get_socket() == nullptr; ++i)
        result = connection.close_connect();
    return result;
}

int start_over(client_comm& connection) {
    close_at_once(connection);
    const int result = connection.connect_to_server();
    if (result < 0)
        close_at_once(connection);
    return result;
}

int leave(client_comm& connection) {
    const int result = connection.back_client_id();
    close_at_once(connection);
    return result;
}
