#include "commands/ControlClient.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "Posix/FileDescriptor.h"

namespace OvixCtl {

namespace {

using Json = nlohmann::ordered_json;

constexpr time_t patienceSeconds = 10;
constexpr std::size_t maxAnswerBytes = std::size_t{256} << 20U;

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    throw std::runtime_error(fmt::format("control socket {}: {}", path, what));
}
[[noreturn]] void failForReason(const std::string& path) {
    if (errno == EAGAIN) {
        fail(path, "the agent does not answer");
    }
    if (errno == ENOENT || errno == ECONNREFUSED) {
        fail(path, fmt::format("no agent is there: {}", std::strerror(errno)));
    }
    fail(path, std::strerror(errno));
}

/// A connected stream socket.
class Connection {
  public:
    explicit Connection(const std::string& path)
        : path_(path), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path) {
            fail(path, "the path is too long");
        }
        std::copy(path.begin(), path.end(), address.sun_path);
        const timeval patience{patienceSeconds, 0};
        setsockopt(socket_.value(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(socket_.value(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        if (connect(socket_.value(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0) {
            failForReason(path);
        }
    }

    void send(const std::string& text) {
        for (std::size_t sent = 0; sent < text.size();) {
            const ssize_t count =
                ::send(socket_.value(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
            if (count < 0 && errno != EINTR) {
                failForReason(path_);
            }
            sent += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        }
    }

    /// Without its line break.
    std::string line() {
        std::string received;
        char bytes[65536];
        while (received.find('\n') == std::string::npos) {
            const ssize_t count = recv(socket_.value(), bytes, sizeof bytes, 0);
            if (count == 0 || received.size() > maxAnswerBytes) {
                fail(path_, "the answer has no end");
            }
            if (count < 0 && errno != EINTR) {
                failForReason(path_);
            }
            received.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        return received.substr(0, received.find('\n'));
    }

  private:
    std::string path_;
    Posix::FileDescriptor socket_;
};

} // namespace

Json askAgent(const std::string& path, const std::string& command) {
    Connection connection(path);
    connection.send(Json{{"command", command}}.dump() + "\n");
    Json answer = Json::parse(connection.line(), nullptr, false);
    if (!answer.is_object() || !answer.contains("ok") || !answer["ok"].is_boolean()) {
        fail(path, "the answer is not an agent's");
    }
    if (!answer["ok"].get<bool>()) {
        fail(path, answer.contains("error") && answer["error"].is_string()
                       ? answer["error"].get<std::string>()
                       : "the agent refuses");
    }
    return answer;
}

} // namespace OvixCtl
