#pragma once

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace TestSupport {

/// What happened on the loopback interface of a network namespace made for the purpose.
struct LoopbackRun {
    std::string unavailable; ///< why there was no namespace; empty when there was
    std::string said;        ///< what the body returned
    std::vector<std::vector<std::uint8_t>> frames;
};

namespace NamespaceDetail {

[[noreturn]] inline void fail(const char* what) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

inline void enterNamespace() {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0 && unshare(CLONE_NEWNET) != 0) {
        fail("no network namespace");
    }
    const int control = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", sizeof request.ifr_name - 1);
    request.ifr_flags = IFF_UP;
    if (control < 0 || ioctl(control, SIOCSIFFLAGS, &request) != 0) {
        fail("lo cannot be brought up");
    }
    close(control);
}

inline int listenOnLoopback(std::uint16_t etherType) {
    const int listening = socket(AF_PACKET, SOCK_RAW, htons(etherType));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(etherType);
    address.sll_ifindex = static_cast<int>(if_nametoindex("lo"));
    if (listening < 0 ||
        bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("no packet socket");
    }
    return listening;
}

inline std::string asHex(const std::uint8_t* bytes, std::size_t count) {
    std::string hex;
    std::array<char, 3> digits{};
    for (std::size_t i = 0; i < count; ++i) {
        std::snprintf(digits.data(), digits.size(), "%02x", unsigned{bytes[i]});
        hex += digits.data();
    }
    return hex;
}

inline std::vector<std::uint8_t> fromHex(const std::string& hex) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

/// One line for the parent: what kind it is, and the rest of it.
inline void tell(int parent, const std::string& kind, const std::string& text) {
    const std::string line = kind + " " + text + "\n";
    if (write(parent, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        _exit(2);
    }
}

inline void tellFrames(int parent, int listening) {
    constexpr int quietMilliseconds = 200;
    std::vector<std::uint8_t> frame(1U << 17U);
    pollfd waiting{listening, POLLIN, 0};
    while (poll(&waiting, 1, quietMilliseconds) > 0) {
        const ssize_t length = recv(listening, frame.data(), frame.size(), 0);
        if (length < 0) {
            return;
        }
        tell(parent, "frame", asHex(frame.data(), static_cast<std::size_t>(length)));
    }
}

inline void runChild(int parent, std::uint16_t etherType,
                     const std::function<std::string()>& body) {
    int listening = -1;
    try {
        enterNamespace();
        listening = listenOnLoopback(etherType);
    } catch (const std::exception& refused) {
        tell(parent, "unavailable", refused.what());
        return;
    }
    try {
        tell(parent, "said", body());
        tellFrames(parent, listening);
    } catch (const std::exception& thrown) {
        tell(parent, "said", std::string("threw ") + thrown.what());
    }
}

inline LoopbackRun understand(const std::string& told) {
    LoopbackRun run;
    std::size_t at = 0;
    for (std::size_t end = 0; (end = told.find('\n', at)) != std::string::npos; at = end + 1) {
        const std::string line = told.substr(at, end - at);
        const std::string text = line.substr(line.find(' ') + 1);
        if (line.starts_with("frame ")) {
            run.frames.push_back(fromHex(text));
        } else {
            (line.starts_with("said ") ? run.said : run.unavailable) = text;
        }
    }
    return run;
}

} // namespace NamespaceDetail

/// Runs `body` in a child process in a network namespace of its own, where "lo" is up, and listens
/// there for frames of `etherType`. What it returns is one line. The host's own interfaces are out
/// of reach.
inline LoopbackRun onOwnLoopback(std::uint16_t etherType,
                                 const std::function<std::string()>& body) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        return {"no pipe", {}, {}};
    }
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        NamespaceDetail::runChild(ends[1], etherType, body);
        _exit(0);
    }
    close(ends[1]);
    std::string told;
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    while ((count = read(ends[0], buffer.data(), buffer.size())) > 0) {
        told.append(buffer.data(), static_cast<std::size_t>(count));
    }
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return NamespaceDetail::understand(told);
}

} // namespace TestSupport
