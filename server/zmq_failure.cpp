// ZeroMQ has error numbers of its own, which only zmq_strerror can name.
#include "zmq_failure.h"

#include <system_error>
#include <zmq.h>

namespace monsrv {

namespace {
class zmq_category final : public std::error_category {
public:
    const char* name() const noexcept override { return "zmq"; }
    std::string message(int error) const override { return zmq_strerror(error); }
    std::error_condition default_error_condition(int error) const noexcept override {
        return std::generic_category().default_error_condition(error);
    }
};
} // namespace

void throw_zmq_error(int error, const std::string& what) {
    static const zmq_category category;
    throw std::system_error(error, category, what);
}

} // namespace monsrv
