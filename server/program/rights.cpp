// Changing the user and the capabilities of this process.
#include "rights.h"

#include <array>
#include <cerrno>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace monsrv {

namespace {
#if !defined(CAP_PERFMON) // younger than the oldest kernel headers in use
#define CAP_PERFMON 38
#endif

struct capability {
    unsigned number;
    const char* name;
};
// Opening /proc/PID/io and /proc/PID/fd takes the second, reading them the first.
constexpr capability of_all_processes[] = {{CAP_SYS_PTRACE, "CAP_SYS_PTRACE"},
                                           {CAP_DAC_READ_SEARCH, "CAP_DAC_READ_SEARCH"},
                                           {CAP_PERFMON, "CAP_PERFMON"}};
constexpr capability of_low_ports[] = {{CAP_NET_BIND_SERVICE, "CAP_NET_BIND_SERVICE"}};

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The capabilities of this thread. The kernel's records hold 32 each.
class capability_set {
public:
    capability_set() {
        if (syscall(SYS_capget, &header_, data_.data()) == -1)
            fail("cannot read this process's capabilities");
    }

    bool has_any() const { return (data_[0].permitted | data_[1].permitted) != 0; }
    bool has(const capability& one) const {
        return (data_[one.number / 32].permitted & bit(one)) != 0;
    }
    void clear() { data_ = {}; }
    void add(const capability& one) {
        data_[one.number / 32].permitted |= bit(one);
        data_[one.number / 32].effective |= bit(one);
    }
    void apply() {
        if (syscall(SYS_capset, &header_, data_.data()) == -1)
            fail("cannot give up capabilities");
    }

private:
    static std::uint32_t bit(const capability& one) { return std::uint32_t{1} << one.number % 32; }

    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data_{};
};

const passwd& find_user(const std::string& name) {
    errno = 0;
    const passwd* user = getpwnam(name.c_str());
    if (user == nullptr)
        throw std::runtime_error("there is no user " + name);
    return *user;
}

void become(const std::string& name) {
    const passwd& user = find_user(name);
    if (user.pw_uid == geteuid())
        return;
    if (geteuid() != 0)
        throw std::runtime_error("only root may become the user " + name);
    // Capabilities are dropped afterwards, one by one.
    if (prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) == -1 || initgroups(name.c_str(), user.pw_gid) == -1 ||
        setresgid(user.pw_gid, user.pw_gid, user.pw_gid) == -1 ||
        setresuid(user.pw_uid, user.pw_uid, user.pw_uid) == -1)
        fail("cannot become the user " + name);
}

// Keeps the capabilities of `before` that are wanted.
// Returns their names, a blank before each.
std::string keep_capabilities(const rights_wanted& wanted, const capability_set& before) {
    std::string names;
    capability_set kept;
    kept.clear();
    const auto keep = [&](const auto& capabilities) {
        for (const capability& each : capabilities) {
            if (!before.has(each))
                continue;
            kept.add(each);
            names += std::string(" ") + each.name;
        }
    };
    if (wanted.all_processes)
        keep(of_all_processes);
    if (wanted.low_port)
        keep(of_low_ports);
    kept.apply();
    return names;
}
} // namespace

std::string default_user() {
    return getpwnam("monsrv") != nullptr ? "monsrv" : "nobody";
}

std::string give_up_rights(const rights_wanted& wanted) {
    const bool root = geteuid() == 0;
    const std::string user = wanted.user.empty() && root ? default_user() : wanted.user;
    const capability_set before;
    if (!user.empty())
        become(user);
    // A program that this process might be made to start gains nothing either.
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == -1)
        fail("cannot give up rights");
    // A sandbox may forbid to set capabilities where there are none.
    const std::string kept = before.has_any() ? keep_capabilities(wanted, before) : "";
    const bool all =
        wanted.all_processes && before.has(of_all_processes[0]) && before.has(of_all_processes[1]);
    if (!root && !before.has_any() && !wanted.all_processes)
        return "";
    return "runs as " + (user.empty() ? "user " + std::to_string(geteuid()) : "the user " + user) +
           (kept.empty() ? " without capabilities" : " with" + kept) +
           (all ? ": figures of all users' processes are answered"
                : ": figures that the kernel keeps from that user are unknown");
}

} // namespace monsrv
