// Serving HTTP by libmicrohttpd.
#include "http_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <map>
#include <microhttpd.h>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace exporter {

namespace {
using clock = std::chrono::steady_clock;

/// When each connection must have got on.
class deadlines {
public:
    /// @param cut once it is true, the deadline has passed; or null
    void set(MHD_Connection* of, clock::time_point time,
             std::shared_ptr<std::atomic<bool>> cut = nullptr) {
        const std::lock_guard<std::mutex> guard(lock_);
        times_[of] = {time, std::move(cut)};
    }
    void forget(MHD_Connection* of) {
        const std::lock_guard<std::mutex> guard(lock_);
        times_.erase(of);
    }
    // Shuts overdue sockets down. The connection's own thread notices and frees its data. It cannot
    // close the socket meanwhile, because it removes its deadline first.
    void cut_overdue() {
        const std::lock_guard<std::mutex> guard(lock_);
        for (auto& [connection, each] : times_) {
            if (each.time > clock::now() && !(each.cut && *each.cut))
                continue;
            const auto* info =
                MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            if (info != nullptr)
                shutdown(info->connect_fd, SHUT_RDWR);
            each = {clock::time_point::max(), nullptr};
        }
    }

private:
    struct deadline {
        clock::time_point time;
        std::shared_ptr<std::atomic<bool>> cut;
    };

    std::mutex lock_;
    std::map<MHD_Connection*, deadline> times_;
};

/// One request, from its headers to the end of its answer.
struct exchange {
    request asked;
    std::string refusal; ///< of a request that no handler should see
    unsigned status = 0;
    body_reader reader; ///< of the answer
};

std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

void refuse(exchange& of, unsigned status, const char* why) {
    if (of.status == 0) {
        of.status = status;
        of.refusal = why;
    }
}

MHD_Result take_header(void* to, MHD_ValueKind, const char* name, std::size_t name_size,
                       const char* value, std::size_t value_size) {
    auto& into = *static_cast<exchange*>(to);
    into.asked.headers.emplace(lower(std::string(name, name_size)),
                               value == nullptr ? std::string() : std::string(value, value_size));
    return MHD_YES;
}

MHD_Result take_argument(void* to, MHD_ValueKind, const char* name, std::size_t name_size,
                         const char* value, std::size_t value_size) {
    auto& into = *static_cast<exchange*>(to);
    const std::string text = value == nullptr ? std::string() : std::string(value, value_size);
    if (text.find('\0') != text.npos)
        refuse(into, MHD_HTTP_BAD_REQUEST, "an argument holds a zero byte");
    if (!into.asked.query.emplace(std::string(name, name_size), text).second)
        refuse(into, MHD_HTTP_BAD_REQUEST, "an argument was given twice");
    return MHD_YES;
}

void check_request(exchange& of, const std::string& method) {
    if (method != "GET" && method != "HEAD")
        refuse(of, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET and HEAD are answered");
    if (of.asked.headers.count("transfer-encoding") != 0 ||
        (of.asked.headers.count("content-length") != 0 && of.asked.header("content-length") != "0"))
        refuse(of, MHD_HTTP_BAD_REQUEST, "a request with a body is not answered");
}

// Pages of other origins may not use our answers, and our pages may use nothing from elsewhere.
void add_headers(MHD_Response* to, const response& from) {
    MHD_add_response_header(to, "Content-Type", from.type.c_str());
    MHD_add_response_header(to, "X-Content-Type-Options", "nosniff");
    MHD_add_response_header(to, "Content-Security-Policy",
                            "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; "
                            "form-action 'none'");
    MHD_add_response_header(to, "Referrer-Policy", "no-referrer");
    MHD_add_response_header(to, "Cross-Origin-Resource-Policy", "same-origin");
    if (from.status == MHD_HTTP_METHOD_NOT_ALLOWED)
        MHD_add_response_header(to, "Allow", "GET, HEAD");
    for (const auto& [name, value] : from.headers)
        MHD_add_response_header(to, name.c_str(), value.c_str());
}

ssize_t read_body(void* from, std::uint64_t, char* into, std::size_t size) {
    const std::size_t read = static_cast<exchange*>(from)->reader(into, size);
    return read == 0 ? MHD_CONTENT_READER_END_OF_STREAM : static_cast<ssize_t>(read);
}
} // namespace

response fault(unsigned status, const std::string& sentence) {
    using nlohmann::json;
    const json said = {{"error", sentence}};
    response made;
    made.status = status;
    made.type = "application/json";
    made.body = said.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    return made;
}

class http_server::running {
public:
    running(const http_options& options, handler answer);
    ~running() { MHD_stop_daemon(daemon_); }
    running(const running&) = delete;
    running& operator=(const running&) = delete;

    int port() const;
    void close_overdue() { deadlines_.cut_overdue(); }

private:
    static MHD_Result on_request(void* self, MHD_Connection* from, const char* path,
                                 const char* method, const char* version, const char* upload,
                                 std::size_t* upload_size, void** own);
    static void on_end(void* self, MHD_Connection* of, void** own, MHD_RequestTerminationCode);
    static void on_connection(void* self, MHD_Connection* of, void**,
                              MHD_ConnectionNotificationCode what);
    void begin_connection(MHD_Connection* of);
    MHD_Result begin(MHD_Connection* from, const char* path, const char* method,
                     const char* version, void** own);
    MHD_Result answer(MHD_Connection* to, exchange& of);

    const http_options options_;
    handler answer_;
    deadlines deadlines_;
    MHD_Daemon* daemon_ = nullptr;
};

http_server::running::running(const http_options& options, handler answer)
    : options_(options), answer_(std::move(answer)) {
    unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL;
    if (options_.at.socket.ss_family == AF_INET6)
        flags |= options_.at.every_family ? unsigned{MHD_USE_DUAL_STACK} : unsigned{MHD_USE_IPv6};
    MHD_OptionItem tls[] = {{MHD_OPTION_END, 0, nullptr},
                            {MHD_OPTION_END, 0, nullptr},
                            {MHD_OPTION_END, 0, nullptr},
                            {MHD_OPTION_END, 0, nullptr}};
    if (!options_.certificate.empty()) {
        flags |= MHD_USE_TLS;
        const auto text = [](const char* of) { return const_cast<char*>(of); };
        tls[0] = {MHD_OPTION_HTTPS_MEM_CERT, 0, text(options_.certificate.c_str())};
        tls[1] = {MHD_OPTION_HTTPS_MEM_KEY, 0, text(options_.key.c_str())};
        tls[2] = {MHD_OPTION_HTTPS_PRIORITIES, 0,
                  text("NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2")};
    }
    constexpr std::size_t stack_bytes = 1 << 20;
    errno = 0;
    daemon_ = MHD_start_daemon(
        flags, 0, nullptr, nullptr, on_request, this, MHD_OPTION_SOCK_ADDR, &options_.at.socket,
        MHD_OPTION_LISTENING_ADDRESS_REUSE, 1U, MHD_OPTION_CONNECTION_LIMIT, options_.connections,
        MHD_OPTION_PER_IP_CONNECTION_LIMIT, options_.connections_per_address,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, options_.request_bytes, MHD_OPTION_CONNECTION_TIMEOUT,
        static_cast<unsigned>(options_.first_request.count()), MHD_OPTION_THREAD_STACK_SIZE,
        stack_bytes, MHD_OPTION_NOTIFY_COMPLETED, on_end, this, MHD_OPTION_NOTIFY_CONNECTION,
        on_connection, this, MHD_OPTION_ARRAY, tls, MHD_OPTION_END);
    if (daemon_ == nullptr)
        throw std::runtime_error("cannot listen at " + options_.at.text + ": " +
                                 (errno != 0 ? std::strerror(errno)
                                             : "is the certificate of use, and the key its own?"));
}

int http_server::running::port() const {
    const auto* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
    return info == nullptr ? 0 : info->port;
}

void http_server::running::on_connection(void* self, MHD_Connection* of, void**,
                                         MHD_ConnectionNotificationCode what) {
    auto& me = *static_cast<running*>(self);
    if (what == MHD_CONNECTION_NOTIFY_CLOSED)
        me.deadlines_.forget(of);
    else
        me.begin_connection(of);
}

// The kernel keeps what a slow reader has not taken yet, and would let that grow to megabytes.
void http_server::running::begin_connection(MHD_Connection* of) {
    deadlines_.set(of, clock::now() + options_.first_request);
    const int bytes = 128 * 1024;
    if (const auto* info = MHD_get_connection_info(of, MHD_CONNECTION_INFO_CONNECTION_FD))
        setsockopt(info->connect_fd, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
}

void http_server::running::on_end(void* self, MHD_Connection* of, void** own,
                                  MHD_RequestTerminationCode) {
    auto& me = *static_cast<running*>(self);
    delete static_cast<exchange*>(std::exchange(*own, nullptr));
    // A client that comes back every half minute should not have to connect each time.
    MHD_set_connection_option(of, MHD_CONNECTION_OPTION_TIMEOUT,
                              static_cast<unsigned>(me.options_.next_request.count()));
    me.deadlines_.set(of, clock::now() + me.options_.next_request);
}

MHD_Result http_server::running::on_request(void* self, MHD_Connection* from, const char* path,
                                            const char* method, const char* version, const char*,
                                            std::size_t* upload_size, void** own) {
    auto& me = *static_cast<running*>(self);
    if (*upload_size != 0) // a body that no header announced
        return MHD_NO;
    try {
        if (*own == nullptr)
            return me.begin(from, path, method, version, own);
        return me.answer(from, *static_cast<exchange*>(*own));
    } catch (const std::exception&) { // there is no memory for it
        return MHD_NO;
    }
}

// Called when the headers are there. A refused request is answered at once, which makes the library
// close the connection in place of reading the body.
MHD_Result http_server::running::begin(MHD_Connection* from, const char* path, const char* method,
                                       const char* version, void** own) {
    auto made = std::make_unique<exchange>();
    made->asked.path = path;
    made->asked.is_http_1_0 = std::string(version) == "HTTP/1.0";
    MHD_get_connection_values_n(from, MHD_HEADER_KIND, take_header, made.get());
    MHD_get_connection_values_n(from, MHD_GET_ARGUMENT_KIND, take_argument, made.get());
    check_request(*made, method);
    exchange& each = *made;
    *own = made.release();
    return each.status != 0 ? answer(from, each) : MHD_YES;
}

MHD_Result http_server::running::answer(MHD_Connection* to, exchange& of) {
    deadlines_.set(to, clock::time_point::max()); // handlers end by themselves
    response made;
    try {
        made = of.status != 0 ? fault(of.status, of.refusal) : answer_(of.asked);
    } catch (const std::exception& e) {
        made = fault(MHD_HTTP_INTERNAL_SERVER_ERROR, e.what());
    }
    MHD_Response* sent = nullptr;
    if (made.reader) {
        of.reader = std::move(made.reader);
        deadlines_.set(to, clock::time_point::max(), made.cut);
        constexpr std::size_t block_bytes = 8192;
        sent = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, block_bytes, read_body, &of,
                                                 nullptr);
    } else {
        deadlines_.set(to, clock::now() + options_.answer);
        auto kept = std::make_unique<std::string>(std::move(made.body));
        char* bytes = kept->data();
        sent = MHD_create_response_from_buffer_with_free_callback_cls(
            kept->size(), bytes, [](void* text) { delete static_cast<std::string*>(text); },
            kept.get());
        if (sent != nullptr)
            static_cast<void>(kept.release());
    }
    if (sent == nullptr)
        return MHD_NO;
    add_headers(sent, made);
    if (of.status != 0)
        MHD_add_response_header(sent, "Connection", "close");
    MHD_set_connection_option(to, MHD_CONNECTION_OPTION_TIMEOUT,
                              static_cast<unsigned>(options_.stall.count()));
    const MHD_Result queued = MHD_queue_response(to, made.status, sent);
    MHD_destroy_response(sent);
    return queued;
}

http_server::http_server(const http_options& options, handler answer)
    : running_(std::make_unique<running>(options, std::move(answer))) {}

http_server::~http_server() = default;

int http_server::port() const {
    return running_->port();
}

void http_server::close_overdue() {
    running_->close_overdue();
}

} // namespace exporter
