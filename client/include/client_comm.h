// The connection to the monitoring server: one ZeroMQ request socket, one frame buffer each way and
// the client-id handshake.
#ifndef MONCL_CLIENT_COMM_H
#define MONCL_CLIENT_COMM_H

#include "common_func.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

class handshake_watch;

/// What became of the handshake with the server, as far as it is watched. After any but `unknown`
/// and `done` it takes other keys, or another server, and a new socket (`start_over`).
enum class handshake {
    unknown,          ///< not watched, or no ZeroMQ server has answered so far
    done,             ///< the server is there; what is wrong is wrong elsewhere
    needs_encryption, ///< the server takes encrypted connections only, and this one is plain
    not_encrypted,    ///< the server takes plain connections only, and this one is encrypted
    key_refused,      ///< the server does not let this connection's key in
    /// The server broke it off each time and gave no reason. One with another key than the given
    /// one does; one of the first two kinds sometimes does, too.
    broken_off,
    failed ///< what the server sent was no handshake
};

/// Owns both frame buffers, and the socket until `close_connect`. Not copyable.
///
/// Has no lock: one request cycle (send, receive, more parts) at a time. Managers that share a
/// connection must not be queried from several threads at once.
///
/// After a failed or timed-out receive the strict request socket refuses the next send; nothing
/// here repairs that. `close_connect` followed by `connect_to_server` does.
class MONCL_API client_comm {
public:
    /// Id the server granted to this process, 0 while none is held. Shared, unsynchronised, by
    /// every connection: the first handshake sets it, the first connection destroyed gives it back.
    static std::uint8_t client_id;

    /// A connection to tcp://@p ip:@p server_port that does not connect yet; both buffers are
    /// zeroed.
    client_comm(std::string ip, int server_port);
    /// Gives the id back (up to `timeout` if the server is silent) and frees the buffers. Leaves
    /// the socket open: call `close_connect` first where that matters.
    ~client_comm();
    client_comm(const client_comm&) = delete;
    client_comm& operator=(const client_comm&) = delete;

    /// With @p on, the next `connect_to_server` lets the address be an IPv6 one, as "[::1]", or a
    /// name that has one (ZMQ_IPV6). Off at first: then no option is set on the socket.
    void allow_ipv6(bool on);

    /// Encrypts the connection from the next `connect_to_server` on (ZMQ_CURVE): nobody on the way
    /// reads or changes what is sent, only the server that holds the secret key to @p server_key
    /// can answer, and the server knows this client by the public key to @p secret_key. The server
    /// must be encrypted too. Off at first; two empty texts switch it off again. Watches the
    /// handshake, as `watch_handshake` does.
    /// @param secret_key this client's own, 40 characters of Z85; copied
    /// @param server_key the server's public key, 40 characters of Z85; copied. With keys of any
    ///                   other form `connect_to_server` ends in -2 and does not connect
    void encrypt(const std::string& secret_key, const std::string& server_key);

    /// Lets the next `connect_to_server` cut a server off that sends a message part of more than
    /// @p bytes, before it is taken in (ZMQ_MAXMSGSIZE): the query then ends in -3. Encryption
    /// adds 33 bytes to a part of 8240. The number of parts is not limited by this. 0 at first: no
    /// limit.
    void limit_message(std::int64_t bytes);

    /// From the next `connect_to_server` on, asks the peer for a sign of life every @p interval_ms
    /// and drops the connection if nothing comes for @p timeout_ms (ZMQ_HEARTBEAT_IVL,
    /// ZMQ_HEARTBEAT_TIMEOUT): libzmq then connects anew by itself, so a server whose host lost its
    /// power or its network is found again without `start_over`. A query is still over after 1000
    /// ms. Servers with a libzmq older than 4.2 give no sign and are connected anew each time. Both
    /// are 0 at first: no heartbeats.
    void send_heartbeats(int interval_ms, int timeout_ms);

    /// With @p on, watches the handshake of each socket from the next `connect_to_server` on, until
    /// its first answer or time-out; see `last_handshake`. Costs one more socket until then. Off at
    /// first, but always on with `encrypt`.
    void watch_handshake(bool on);

    /// What became of the handshake of the latest socket. A query that fails because of it has
    /// logged it. Does not wait: ask after a query failed.
    handshake last_handshake();

    /// With @p on, a signal that is handled while an answer is waited for does not end the query:
    /// the rest of the 1000 ms is waited for. Off at first: then the query ends in -2.
    void wait_through_signals(bool on);

    /// Creates a context and a socket, connects, and asks for a client id if none is held. A second
    /// call makes a new socket and leaves the old one open.
    /// @return 0; -1 no context; -2 no socket, or keys that are none; -3 connect failed (nothing
    /// stays open); or the code of
    ///         the handshake's send or receive
    int connect_to_server();

    /// Sends one request frame of @p len payload bytes; copies @p msg. Never waits.
    /// @return 0; -1 if @p len is above 1024 (nothing is sent); -2 if the send failed
    int send_msg_to_server(int command, int sub_command, const unsigned char* msg,
                           unsigned int len);

    /// Waits up to 1000 ms for an answer packet and takes it into the receive buffer, stamped with
    /// the time of receipt. Payload bytes the frame did not carry, and those from `msg_len` on, are
    /// zeroed; a `msg_len` above 8192 announces further parts and zeroes only the former.
    /// @return bytes received; -1 receive failed or frame shorter than its header; -2 poll failed;
    ///         -3 timed out; -4 wrong checksum; or the answer's own negative `msg_len`
    int recv_msg_from_server();

    /// Whether the latest request was answered with a negative code of the server's own, which is
    /// then `get_recv_data()->msg_len`.
    bool was_refused() const;

    /// Completes an answer of several parts whose first part `recv_msg_from_server` took: writes
    /// the payloads, 8192 bytes each, one after the other into @p buf.
    /// @param buf receives the parts; the caller's
    /// @param len bytes of @p buf; nothing is written past it
    /// @return 0; -1 on a failed receive, after which the payload in the receive buffer is all
    ///         zeros, a wrong checksum or a part that does not fit. Unless
    ///         `stop_at_last_part` is on, one more receive follows the last part, which the request
    ///         socket refuses: a complete answer then ends in -1 with @p buf filled
    int recv_more_msg(unsigned char* buf, int len);

    /// Bytes that the latest `recv_more_msg` wrote, also if it failed: 8192 for each part.
    int get_more_len() const;

    /// With @p on, `recv_more_msg` returns 0 as soon as it has taken in the last part. Off at
    /// first.
    void stop_at_last_part(bool on);

    /// Holds an id of this connection's own in place of the process's: for processes that ask
    /// several servers, each of which grants ids by itself, or that ask from several threads. Call
    /// it before the first `connect_to_server`. Off at first.
    void keep_own_id();

    /// Gives the id back, if one is held; it stays held if that fails.
    /// @return 0, or the code of the send or receive
    int back_client_id();

    /// Closes the socket and terminates the context; both are null afterwards. Blocks while a
    /// message is unsent unless the caller has set ZMQ_LINGER on `get_socket`.
    /// @return 0; -1 if either step failed (a context whose socket did not close is left alone).
    ///         Another call goes on with the step that failed, so a signal that interrupted the
    ///         termination of the context loses nothing
    int close_connect();

    /// Wall-clock time of the last send, in microseconds since the epoch.
    unsigned long get_send_time_us();
    /// Wall-clock time of the last receipt, in microseconds since the epoch.
    unsigned long get_recv_time_us();
    /// The ZeroMQ socket, owned by the connection; null while not connected.
    void* get_socket();
    /// The receive buffer, owned by the connection: 8240 bytes, the last packet received. A zero
    /// byte always follows the payload. Its content ends with the next receive.
    data_struct* get_recv_data();
    /// The send buffer, owned by the connection: 1072 bytes, the last request sent.
    data_struct* get_send_data();

private:
    MONCL_LOCAL bool set_options();
    MONCL_LOCAL int wait_for_answer();
    MONCL_LOCAL void log_handshake();
    MONCL_LOCAL int req_client_id();
    MONCL_LOCAL std::uint8_t& held_id();
    MONCL_LOCAL int receive_frame();
    MONCL_LOCAL bool checksum_matches() const;

    struct frame_deleter {
        void operator()(data_struct* frame) const { std::free(frame); }
    };
    using frame = std::unique_ptr<data_struct, frame_deleter>;
    MONCL_LOCAL static frame new_frame(std::size_t size);

    frame send_data;
    frame recv_data;
    void* context = nullptr;
    void* socket = nullptr;
    std::string ip_addr;
    int port;
    int timeout;
    std::string str_target;
    bool stop_at_last = false;
    bool keeps_own_id = false;
    std::uint8_t own_id = 0;
    bool ipv6 = false;
    int more_len = 0;
    bool refused = false;
    bool encrypted = false;
    std::string own_key;
    std::string server_public_key;
    std::int64_t message_max = 0;
    int heartbeat_interval = 0;
    int heartbeat_timeout = 0;
    bool outlasts_signals = false;
    bool watches_handshake = false;
    std::unique_ptr<handshake_watch> watch;
};

#endif
