// moncl keygen: a pair of keys for encrypted connections, in two files.
#include "program.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>
#include <zmq.h>

namespace tools {
namespace {

[[noreturn]] void fail(const std::string& path, int error) {
    throw std::runtime_error(path + ": " + std::strerror(error));
}

// A file that was not there before; removed again unless it is kept.
class new_file {
public:
    new_file(std::string path, mode_t mode)
        : path_(std::move(path)),
          fd_(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode)) {
        if (fd_ == -1 && errno == EEXIST)
            throw std::runtime_error(path_ + " is there already: keys are not overwritten");
        if (fd_ == -1)
            fail(path_, errno);
    }
    ~new_file() {
        if (fd_ != -1)
            close(fd_);
        if (!kept_)
            unlink(path_.c_str());
    }
    new_file(const new_file&) = delete;
    new_file& operator=(const new_file&) = delete;

    void write(const std::string& text) const {
        writer to(fd_);
        to.add(text);
        to.flush();
        if (to.error() != 0 || fsync(fd_) == -1)
            fail(path_, to.error() != 0 ? to.error() : errno);
    }
    void keep() { kept_ = true; }

private:
    std::string path_;
    int fd_;
    bool kept_ = false;
};

// What the key is called in a list of those who may connect: the file without folder and ending.
std::string name_of(const std::string& path) {
    const std::string file = path.substr(path.rfind('/') + 1); // npos + 1 is 0
    return file.substr(0, file.rfind('.'));
}

int run(const invocation& called, std::ostream&) {
    if (!called.subjects.empty())
        throw std::runtime_error("keygen makes keys: it takes no subject");
    const std::string& path = called.words.front();
    char own_public[41]; // with its zero byte
    char own_secret[41];
    if (zmq_curve_keypair(own_public, own_secret) != 0)
        throw std::runtime_error("the libzmq of this system cannot encrypt");
    new_file pair(path, 0600);
    new_file for_others(path + ".pub", 0644);
    const std::string public_line = "public = \"" + std::string(own_public) + "\"\n";
    pair.write("# A pair of keys. Keep this file to yourself.\n" + public_line + "secret = \"" +
               own_secret + "\"\n");
    for_others.write("# The public key of " + name_of(path) + ", for others.\n" + public_line);
    writer to(STDOUT_FILENO);
    to.add(std::string(own_public) + " " + name_of(path) + "\n");
    to.flush();
    if (to.error() != 0)
        throw std::runtime_error("cannot write: " + std::string(std::strerror(to.error())));
    pair.keep();
    for_others.keep();
    return exit_ok;
}

const command_registration
    registered({"keygen",
                "FILE",
                "Makes a pair of keys: FILE, yours alone, and FILE.pub; shows the line for --allow",
                1,
                {},
                false,
                run});

} // namespace
} // namespace tools
