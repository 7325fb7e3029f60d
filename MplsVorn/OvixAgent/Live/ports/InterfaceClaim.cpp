#include "Live/ports/InterfaceClaim.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace OvixAgent {

namespace {

struct Name {
    sockaddr_un address{};
    socklen_t size = 0;

    explicit Name(unsigned int index) {
        const std::string text = "ovix-agent/interface/" + std::to_string(index);
        address.sun_family = AF_UNIX;
        std::copy(text.begin(), text.end(), address.sun_path + 1); // behind a zero: abstract
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    }
    const sockaddr* get() const noexcept { return reinterpret_cast<const sockaddr*>(&address); }
};

/// The sockets of the claims of this process.
std::vector<int>& claims() {
    static std::vector<int> all;
    return all;
}

/// Who has the name; unset when nobody is found.
std::optional<ucred> holderOf(const Name& name) {
    const Posix::FileDescriptor asking(
        socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ucred holder{};
    socklen_t size = sizeof holder;
    if (connect(asking.value(), name.get(), name.size) != 0 ||
        getsockopt(asking.value(), SOL_SOCKET, SO_PEERCRED, &holder, &size) != 0) {
        return std::nullopt;
    }
    return holder;
}

/// Whether a process has been killed and only its memory is still being released.
bool isEnding(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/stat");
    std::string text{std::istreambuf_iterator<char>(status), {}};
    const std::size_t name = text.rfind(") "); // which may hold anything
    return name != text.npos && (text[name + 2] == 'Z' || text[name + 2] == 'X');
}

/// 0 or the error number. Waits for one that has been killed, no longer than a second.
int bindWhenFree(int socket, const Name& name) {
    constexpr int tries = 100;
    for (int i = 1;; ++i) {
        if (bind(socket, name.get(), name.size) == 0) {
            return 0;
        }
        const int error = errno;
        const auto holder = error == EADDRINUSE ? holderOf(name) : std::nullopt;
        if (!holder || !isEnding(holder->pid) || i == tries) {
            return error;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace

InterfaceClaim::InterfaceClaim(unsigned int index)
    : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const Name name(index);
    const int error = bindWhenFree(socket_.value(), name);
    if (error == 0) {
        listen(socket_.value(), SOMAXCONN);
        claims().push_back(socket_.value());
        return;
    }
    const std::optional<ucred> holder = error == EADDRINUSE ? holderOf(name) : std::nullopt;
    const bool isAgent =
        holder && holder->pid != getpid() && (holder->uid == 0 || holder->uid == geteuid());
    if (isAgent) {
        throw std::system_error(EBUSY, std::generic_category(),
                                "another agent, process " + std::to_string(holder->pid) +
                                    ", forwards on this interface");
    }
}

InterfaceClaim::~InterfaceClaim() {
    std::erase(claims(), socket_.value());
}

void InterfaceClaim::dismissAskers() {
    for (const int claim : claims()) {
        while (Posix::FileDescriptor(accept4(claim, nullptr, nullptr, SOCK_CLOEXEC)).isOpen()) {
        }
    }
}

} // namespace OvixAgent
