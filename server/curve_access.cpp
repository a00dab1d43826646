// The handler of ZeroMQ's authentication protocol: requests of at least seven parts, the seventh
// the client's public key; answers of six parts.
#include "curve_access.h"

#include "platform_log.h"
#include "zmq_failure.h"

#include <iterator>
#include <new>
#include <stdexcept>
#include <zmq.h>

namespace monsrv {

namespace {
constexpr const char* handler_address = "inproc://zeromq.zap.01";
constexpr std::size_t key_size = 32;

// The parts of one message, cut off where they are longer or more than any that is expected.
// Returns false once the context is shut down.
bool receive(void* socket, std::string (&parts)[8]) {
    std::size_t count = 0;
    std::size_t size = sizeof(int);
    for (int more = 1; more != 0; ++count) {
        char bytes[256];
        int n;
        do
            n = zmq_recv(socket, bytes, sizeof bytes, 0);
        while (n == -1 && zmq_errno() == EINTR);
        if (n == -1)
            return false;
        if (count < std::size(parts))
            parts[count].assign(bytes, std::min<std::size_t>(static_cast<std::size_t>(n), 256));
        zmq_getsockopt(socket, ZMQ_RCVMORE, &more, &size);
    }
    for (; count < std::size(parts); ++count)
        parts[count].clear();
    return true;
}
} // namespace

curve_access::curve_access(void* context, const std::string& allow_file)
    : allow_file_(allow_file), handler_(nullptr) {
    if (zmq_has("curve") == 0)
        throw std::runtime_error("this build of ZeroMQ has no encryption");
    if (const std::string wrong = read(); !wrong.empty())
        throw std::runtime_error(wrong);
    handler_ = zmq_socket(context, ZMQ_REP);
    const int linger_ms = 0;
    if (handler_ == nullptr)
        throw_zmq_error(zmq_errno(), "cannot check the keys of clients");
    zmq_setsockopt(handler_, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
    try {
        if (zmq_bind(handler_, handler_address) == -1)
            throw_zmq_error(zmq_errno(), "cannot check the keys of clients");
        answering_ = std::thread([this] { answer_until_shut_down(); });
    } catch (...) {
        zmq_close(handler_);
        throw;
    }
}

curve_access::~curve_access() {
    answering_.join();
}

void curve_access::secure(void* socket, const curve_key_pair& keys) {
    const int on = 1;
    const char domain[] = "monsrv";
    if (zmq_setsockopt(socket, ZMQ_CURVE_SERVER, &on, sizeof on) == -1 ||
        zmq_setsockopt(socket, ZMQ_CURVE_SECRETKEY, keys.secret_key.c_str(),
                       keys.secret_key.size() + 1) == -1 ||
        zmq_setsockopt(socket, ZMQ_ZAP_DOMAIN, domain, sizeof domain - 1) == -1)
        throw_zmq_error(zmq_errno(), "cannot encrypt");
}

bool curve_access::allows(const char* public_key) const {
    if (public_key == nullptr)
        return false;
    const std::lock_guard<std::mutex> guard(lock_);
    return allowed_.count(std::string_view(public_key)) != 0;
}

std::string curve_access::read() {
    std::vector<allowed_key> keys;
    if (std::string wrong = read_allowed_keys(allow_file_, keys); !wrong.empty())
        return wrong;
    std::set<std::string, std::less<>> allowed;
    for (allowed_key& each : keys)
        allowed.insert(std::move(each.public_key));
    const std::lock_guard<std::mutex> guard(lock_);
    allowed_ = std::move(allowed);
    return {};
}

bool curve_access::read_again() {
    const std::string wrong = read();
    if (wrong.empty())
        __android_log_print(ANDROID_LOG_INFO, "MONSRV", "%s read again\n", allow_file_.c_str());
    else
        __android_log_print(ANDROID_LOG_ERROR, "MONSRV", "%s; the keys read before stay allowed\n",
                            wrong.c_str());
    return wrong.empty();
}

// The socket stays open until the context is shut down: without it, ZeroMQ would ask nobody.
void curve_access::answer_until_shut_down() {
    for (std::string request[8]; receive(handler_, request);)
        answer_one(request);
    zmq_close(handler_);
}

void curve_access::answer_one(const std::string (&request)[8]) {
    const std::string& key = request[6];
    char text[41] = "";
    const bool is_key = request[5] == "CURVE" && key.size() == key_size &&
                        zmq_z85_encode(text, reinterpret_cast<const std::uint8_t*>(key.data()),
                                       key_size) != nullptr;
    const bool allowed = is_key && allows(text);
    refused_ += allowed ? 0 : 1;
    // The fifth part comes with each of the client's messages, as the user's id.
    const std::string answer[] = {"1.0",
                                  request[1],
                                  allowed ? "200" : "400",
                                  allowed ? "OK" : "this key is not allowed",
                                  allowed ? text : "",
                                  ""};
    for (const std::string& part : answer)
        zmq_send(handler_, part.data(), part.size(),
                 &part == std::end(answer) - 1 ? 0 : ZMQ_SNDMORE);
}

} // namespace monsrv
