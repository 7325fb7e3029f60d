#pragma once

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace TestSupport {

/// Runs ip(8) with these arguments, for example "link set left up".
inline void ip(const std::string& arguments) {
    const std::string command = "ip " + arguments;
    if (std::system(command.c_str()) != 0) { // NOLINT(cert-env33-c): the tests' own words
        throw std::runtime_error("failed: " + command);
    }
}

/// A network namespace that this thread is in or has been in.
class Namespace {
  public:
    /// The one that the thread is in.
    Namespace() : file_(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)) {}
    Namespace(const Namespace&) = delete;
    Namespace& operator=(const Namespace&) = delete;
    ~Namespace() { close(file_); }

    void enter() const {
        if (setns(file_, CLONE_NEWNET) != 0) {
            throw std::runtime_error(std::string("setns: ") + std::strerror(errno));
        }
    }
    /// As ip(8) takes it behind "netns".
    std::string path() const {
        return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(file_);
    }

  private:
    int file_;
};

/// Puts the thread into a new network namespace. Why there is none to be had; empty when there is.
inline std::string leaveNetwork() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        return std::string("no network namespace: ") + std::strerror(errno);
    }
    return {};
}

/// A link that has been brought up takes a moment until it sends.
inline void awaitOperation(const std::string& link) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    const std::string isUp = "ip -oneline link show " + link + " | grep -q 'state UP'";
    while (std::system(isUp.c_str()) != 0) { // NOLINT(cert-env33-c): the tests' own words
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error(link + " does not come up");
        }
    }
}

struct LinkEnd {
    std::string name;
    std::string mac;
};

/// Two ends of one virtual link, which are up and send nothing by themselves.
inline void addLinkPair(const LinkEnd& one, const LinkEnd& other) {
    ip("link add name " + one.name + " address " + one.mac + " type veth peer name " + other.name +
       " address " + other.mac);
    for (const std::string& end : {one.name, other.name}) {
        ip("link set " + end + " addrgenmode none");
        ip("link set " + end + " up");
    }
    awaitOperation(one.name);
    awaitOperation(other.name);
}

} // namespace TestSupport
