// Collects the facts: those fixed by the build, and what the linked libzmq reports about itself.
#include "build_facts.h"

#include <zmq.h>

namespace build_facts {
namespace {

#ifdef __clang__
constexpr const char* compiler = "clang " __clang_version__;
#else
constexpr const char* compiler = "GCC " __VERSION__;
#endif

// The shared library found at run time may differ from the one at build time.
std::string zmq_text() {
    int major = 0, minor = 0, patch = 0;
    zmq_version(&major, &minor, &patch);
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

} // namespace

std::string text_of(const std::string& program) {
    return program + " " MONCL_VERSION "\nlibmoncl: " MONCL_VERSION ", " MONCL_LIBRARY_KIND +
           "\nlibzmq: " + zmq_text() + "\nencryption: " +
           (zmq_has("curve") != 0 ? "available"
                                  : "not available (libzmq was built without CURVE)") +
           "\ncompiler: " + compiler;
}

} // namespace build_facts
