// What the fuzz targets share: their list, the input cut into pieces, pieces in memory of their
// own, answers given to a manager, and differences that end the run.
//
// A fuzz target is one file NAME_fuzz.cpp with one function, which the fuzzer and the tests call:
//
//     void fuzz_cpu(const std::uint8_t* data, std::size_t size) { ... }
//     static const fuzz::target registered("cpu", fuzz_cpu);
#ifndef MONCL_FUZZ_SUPPORT_H
#define MONCL_FUZZ_SUPPORT_H

#include "client_comm.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// A function that decodes any bytes, and ends the process at a fault.
struct target {
    /// Adds the target to `all_targets` for as long as the program runs.
    /// @param name a literal: that of its folders of kept inputs
    target(const char* name, void (*run)(const std::uint8_t* data, std::size_t size));

    const char* name;
    void (*run)(const std::uint8_t* data, std::size_t size);
};

/// The targets linked into this program: one in a fuzzer, all in the tests.
const std::vector<const target*>& all_targets();

/// The bytes of one run, taken from their start; at their end there are zeros and empty pieces.
class input {
public:
    input(const std::uint8_t* data, std::size_t size)
        : rest_(reinterpret_cast<const char*>(data), size) {}

    bool empty() const { return rest_.empty(); }
    /// One number, little-endian.
    std::uint8_t byte();
    std::uint16_t two_bytes();
    /// Up to @p size bytes.
    std::string_view bytes(std::size_t size);
    /// Two bytes of length, then as many bytes: one of several payloads.
    std::string_view piece() { return bytes(two_bytes()); }
    /// All up to the next NUL, which is taken as well: one of several texts.
    std::string_view text();

private:
    std::string_view rest_;
};

/// A run decodes no more pieces of its input than this.
inline constexpr int most_pieces = 8;

/// A text and its NUL in memory that ends there, so that a sanitizer sees a read beyond it.
class text_payload {
public:
    explicit text_payload(std::string_view text) : text_(text), bytes_(copy(text)) {}
    unsigned char* data() const { return bytes_.get(); }
    const std::string& text() const { return text_; }

private:
    static std::unique_ptr<unsigned char[]> copy(std::string_view text) {
        auto bytes = std::make_unique<unsigned char[]>(text.size() + 1);
        std::copy(text.begin(), text.end(), bytes.get());
        return bytes;
    }
    std::string text_;
    std::unique_ptr<unsigned char[]> bytes_;
};

/// Ends the run unless @p held.
void expect(bool held, const char* what);

/// The number that the last line of @p text to hold anything starts with, read with a stream.
void last_number(const std::string& text, std::uint64_t& number);

/// A stream that formats and drops; a new one of the default format at each call.
std::ostream& report();

/// Has @p manager decode @p payload as if it had been received, a good second after the answer
/// before, and report it. The payload is followed by 4 bytes and then by nothing, as on the wire.
template<class Manager, class Parser>
void answer(Manager& manager, const std::shared_ptr<Parser>& parser, int sub_command,
            std::string_view payload) {
    if (!manager.client)
        manager.client = std::make_shared<client_comm>("127.0.0.1", 1); // never connected
    data_struct* frame = manager.client->get_recv_data();
    payload = payload.substr(0, answer_payload_max);
    frame->sub_command = sub_command;
    frame->msg_len = static_cast<std::int32_t>(payload.size());
    frame->time.tv_sec += 1;
    frame->time.tv_usec = 500000;
    std::memset(frame->msg, 0, answer_payload_max);
    std::copy(payload.begin(), payload.end(), frame->msg);
    if (manager.handle_request(parser) >= 0)
        manager.show_result(parser, report());
}

/// zmq_recv without flags, going on after a signal: a timer of the fuzzer's sends one now and then.
int receive(void* socket, void* buffer, std::size_t size);

/// The port in the endpoint that @p socket is bound to.
int bound_port(void* socket);

} // namespace fuzz

#endif
