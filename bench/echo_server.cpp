// A bare ROUTER socket that answers every request with one packet of 8240 bytes, and does nothing
// else: what a server on ZeroMQ can reach at most with one thread.
//
// Usage: moncl_echo_server PORT
#include "common_func.h"

#include <cstdio>
#include <string>
#include <zmq.h>

int main(int argc, char** argv) {
    void* context = zmq_ctx_new();
    void* router = zmq_socket(context, ZMQ_ROUTER);
    if (argc != 2 || zmq_bind(router, ("tcp://127.0.0.1:" + std::string(argv[1])).c_str()) == -1) {
        std::fprintf(stderr, "usage: %s PORT, a free one\n", argv[0]);
        return 2;
    }
    static char packet[answer_frame_size];
    char peer[256];
    char part[1100];
    for (;;) {
        zmq_pollitem_t item{router, 0, ZMQ_POLLIN, 0};
        zmq_poll(&item, 1, -1);
        const int size = zmq_recv(router, peer, sizeof peer, 0);
        zmq_recv(router, part, sizeof part, 0); // the delimiter
        zmq_recv(router, part, sizeof part, 0);
        zmq_send(router, peer, static_cast<std::size_t>(size), ZMQ_SNDMORE);
        zmq_send(router, "", 0, ZMQ_SNDMORE);
        zmq_send(router, packet, sizeof packet, 0);
    }
}
