// A server of the test that takes encrypted connections of one key alone.
#ifndef MONCL_TESTS_ENCRYPTED_SERVER_H
#define MONCL_TESTS_ENCRYPTED_SERVER_H

#include "scripted_server.h"

#include <atomic>
#include <string>
#include <thread>
#include <zmq.h>

/// A pair of keys, as texts.
struct made_keys {
    made_keys() {
        char own_public[41];
        char own_secret[41];
        zmq_curve_keypair(own_public, own_secret);
        public_key = own_public;
        secret = own_secret;
    }
    std::string public_key;
    std::string secret;
};

/// Answers libzmq's questions who may connect, with one status for one key and 400 for all others.
/// Ends with the context.
class key_checker {
public:
    ~key_checker() {
        if (thread_.joinable())
            thread_.join();
    }

    /// Encrypts @p socket with the server's keys, for @p allowed alone.
    void protect(void* context, void* socket, const made_keys& server, const std::string& allowed) {
        const int on = 1;
        zmq_setsockopt(socket, ZMQ_CURVE_SERVER, &on, sizeof on);
        zmq_setsockopt(socket, ZMQ_CURVE_SECRETKEY, server.secret.c_str(), 41);
        zmq_setsockopt(socket, ZMQ_ZAP_DOMAIN, "test", 4);
        void* questions = zmq_socket(context, ZMQ_REP);
        zmq_bind(questions, "inproc://zeromq.zap.01");
        thread_ = std::thread([this, questions, allowed] { answer(questions, allowed); });
    }

    std::atomic<const char*> status{"200"}; ///< of the allowed key

private:
    void answer(void* questions, const std::string& allowed) {
        unsigned char key[32] = {};
        zmq_z85_decode(key, allowed.c_str());
        const std::string wanted(reinterpret_cast<char*>(key), sizeof key);
        std::string request_id;
        std::string credentials;
        for (char part[256];;) {
            int more = 1;
            for (int i = 0; more != 0; ++i) {
                const int n = zmq_recv(questions, part, sizeof part, 0);
                if (n < 0) {
                    zmq_close(questions);
                    return;
                }
                credentials.assign(part, static_cast<std::size_t>(n)); // the last part
                if (i == 1)
                    request_id = credentials;
                std::size_t size = sizeof more;
                zmq_getsockopt(questions, ZMQ_RCVMORE, &more, &size);
            }
            const std::string said = credentials == wanted ? status.load() : "400";
            for (const std::string& each :
                 {std::string("1.0"), request_id, said, std::string(), std::string()})
                zmq_send(questions, each.data(), each.size(), ZMQ_SNDMORE);
            zmq_send(questions, "", 0, 0); // no metadata
        }
    }

    std::thread thread_;
};

/// Its own keys, and those of the client that it lets in.
struct encrypted_server {
    explicit encrypted_server(std::string allowed) : allowed_key(std::move(allowed)) {}

    const made_keys keys;
    const std::string allowed_key;
    key_checker checker;
    scripted_server server{[this](void* context, void* socket) {
        checker.protect(context, socket, keys, allowed_key);
    }};
};

#endif
