#include "Control/ControlServer.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "Posix/ServiceAccounts.h"

namespace OvixAgent {

namespace {

constexpr const char* ofSystem = "/run/ovix";

} // namespace

std::string controlPath(const std::string& name) {
    const auto environment = [](const char* variable) {
        const char* value = std::getenv(variable);
        return std::string(value != nullptr ? value : "");
    };
    std::string directory = environment("OVIX_RUNTIME_DIR");
    if (directory.empty() && geteuid() == 0) {
        directory = ofSystem;
    } else if (directory.empty()) {
        const std::string perUser = environment("XDG_RUNTIME_DIR");
        directory = perUser.empty() ? fmt::format("/tmp/ovix-{}", geteuid()) : perUser + "/ovix";
    }
    return directory + "/" + name + ".sock";
}

std::string controlPathToAsk(const std::string& name) {
    const std::string own = controlPath(name);
    const std::string others = std::string(ofSystem) + "/" + name + ".sock";
    std::error_code unseen;
    return !std::filesystem::exists(own, unseen) && std::filesystem::exists(others, unseen) ? others
                                                                                            : own;
}

namespace {

/// What is wrong with it; empty when nothing is.
std::string_view distrust(const struct stat& directory) {
    const bool isOwn = Posix::ServiceAccounts::isTrusted(directory.st_uid);
    const bool isShared = (directory.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    return !isOwn                                           ? "belongs to another user"
           : S_ISLNK(directory.st_mode)                     ? ""
           : !S_ISDIR(directory.st_mode)                    ? "is no directory"
           : isShared && (directory.st_mode & S_ISVTX) == 0 ? "can be written by others"
                                                            : "";
}

[[noreturn]] void fail(const std::string& path, const char* what) {
    throw std::system_error(errno, std::generic_category(),
                            "control socket " + path + ": cannot " + what);
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error("control socket " + path + ": the path is too long");
    }
    std::copy(path.begin(), path.end(), address.sun_path);
    return address;
}

/// False for the socket of an agent that was killed.
bool isServed(const sockaddr_un& address) {
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool served =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return served;
}

bool watch(int events, int socket, std::uint32_t what) {
    epoll_event event{};
    event.events = what;
    event.data.fd = socket;
    return epoll_ctl(events, EPOLL_CTL_ADD, socket, &event) == 0;
}

} // namespace

Tessel::Result<void> checkControlDirectory(const std::string& path) {
    std::string directory = std::filesystem::path(path).parent_path();
    directory = directory.empty() ? "." : directory;
    for (const auto examine : {&::lstat, &::stat}) {
        struct stat found {};
        if (examine(directory.c_str(), &found) != 0) {
            return {}; // whoever uses the path says so
        }
        if (const std::string_view wrong = distrust(found); !wrong.empty()) {
            return Tessel::Refused{fmt::format("control socket {}: {} {}", path, directory, wrong)};
        }
    }
    return {};
}

ControlServer::ControlServer(std::string path, Handler handler)
    : path_(std::move(path)), handler_(std::move(handler)) {
    const sockaddr_un address = addressOf(path_);
    const std::filesystem::path directory = std::filesystem::path(path_).parent_path();
    std::error_code ignored;
    if (!directory.empty() && std::filesystem::create_directories(directory, ignored)) {
        chmod(directory.c_str(), 0755);
    }
    if (const auto trusted = checkControlDirectory(path_); !trusted) {
        throw std::runtime_error(trusted.refused().what);
    }
    struct stat found {};
    if (lstat(path_.c_str(), &found) == 0 && !S_ISSOCK(found.st_mode)) {
        throw std::runtime_error("control socket " + path_ + ": exists and is not a socket");
    }
    if (isServed(address)) {
        throw std::runtime_error("control socket " + path_ +
                                 ": another agent serves it; give this one its own by --control");
    }
    unlink(path_.c_str());
    listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    // Only the agent's own user, unless the directory is shared with a group.
    const mode_t mask = umask(0177);
    const int bound = bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    umask(mask);
    events_ = epoll_create1(EPOLL_CLOEXEC);
    if (bound != 0 || listen(listener_, maxClients) != 0 || events_ < 0 ||
        !watch(events_, listener_, EPOLLIN | EPOLLET)) {
        const int reason = errno;
        close(events_);
        close(listener_);
        errno = reason;
        fail(path_, "listen");
    }
    keepSpare();
    struct stat where {};
    if (stat(directory.c_str(), &where) == 0 && Posix::ServiceAccounts::isService(where.st_uid)) {
        Posix::ServiceAccounts::shareWithReaders(path_.c_str(), 0660);
    }
}

ControlServer::~ControlServer() {
    for (const Client& client : clients_) {
        close(client.socket);
    }
    close(events_);
    close(listener_);
    unlink(path_.c_str());
}

void ControlServer::serve() {
    epoll_event event{};
    if (epoll_wait(events_, &event, 1, 0) < 1 && !clientsWait_ && !isBusy()) {
        return;
    }
    if (!spare_.isOpen() && clients_.empty()) {
        keepSpare();
    }
    acceptClients();
    busy_ = 0;
    for (auto client = clients_.begin(); client != clients_.end();) {
        if (progress(*client)) {
            ++client;
        } else {
            close(client->socket);
            client = clients_.erase(client);
        }
    }
}

void ControlServer::keepSpare() {
    spare_ = Posix::FileDescriptor(fcntl(listener_, F_DUPFD_CLOEXEC, 0));
}

void ControlServer::acceptClients() {
    assert(clients_.size() <= maxClients);
    for (;;) {
        const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        const bool lacksDescriptor = socket < 0 && (errno == EMFILE || errno == ENFILE);
        if (lacksDescriptor && spare_.isOpen()) {
            spare_ = Posix::FileDescriptor();
            continue;
        }
        if (socket < 0) {
            // Else without a descriptor for it; the event that it caused does not come again.
            clientsWait_ = errno != EAGAIN;
            return;
        }
        if (clients_.size() == maxClients) {
            close(clients_.front().socket); // the oldest
            clients_.pop_front();
        }
        if (!watch(events_, socket, EPOLLIN | EPOLLOUT | EPOLLET)) {
            close(socket); // it would never be heard
            continue;
        }
        clients_.push_back({socket, {}, {}, {}, false});
    }
}

/// False when the client is to be disconnected.
bool ControlServer::progress(Client& client) {
    const bool isAnswered = client.answer.entries || !client.toSend.empty();
    if (!isAnswered && !receive(client)) {
        return false;
    }
    const std::size_t end = client.received.find('\n');
    if (!isAnswered && end != std::string::npos) {
        answer(client, client.received.substr(0, end));
        client.received.erase(0, end + 1);
    }
    if (client.answer.entries) {
        makeEntries(client);
    }
    if (client.toSend.empty()) {
        busy_ += client.answer.entries ? 1 : 0;
        return true;
    }
    return send(client);
}

void ControlServer::answer(Client& client, const std::string& request) {
    client.answer =
        isChange_ && isChange_(request) && !Posix::ServiceAccounts::mayChange(client.socket)
            ? ControlAnswer(R"({"ok":false,"error":"only members of ovix-admin may do that"})")
            : handler_(request);
    client.toSend = std::exchange(client.answer.begin, {});
    if (!client.answer.entries) {
        client.toSend += '\n';
    }
}

// At least one is made at a time, and no more than the client takes.
void ControlServer::makeEntries(Client& client) const {
    constexpr std::size_t mostWaiting = 65536;
    const auto share = longestWork / static_cast<long>(std::max<std::size_t>(clients_.size(), 1));
    const auto until = std::chrono::steady_clock::now() + share;
    std::string entry;
    while (client.toSend.size() < mostWaiting) {
        entry.clear();
        if (!client.answer.entries(entry)) {
            client.toSend += client.answer.end + "\n";
            client.answer = {};
            return;
        }
        if (!entry.empty()) {
            client.toSend += (std::exchange(client.hasEntry, true) ? "," : "") + entry;
        }
        if (std::chrono::steady_clock::now() >= until) {
            return;
        }
    }
}

bool ControlServer::receive(Client& client) {
    assert(client.toSend.empty());
    char bytes[4096];
    while (client.received.size() < maxRequestBytes) {
        const ssize_t got = recv(client.socket, bytes, sizeof bytes, 0);
        if (got > 0) {
            client.received.append(bytes, static_cast<std::size_t>(got));
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else {
            return (got < 0 && errno == EAGAIN) || client.received.find('\n') != std::string::npos;
        }
    }
    return client.received.find('\n') != std::string::npos;
}

bool ControlServer::send(Client& client) {
    assert(!client.toSend.empty());
    while (!client.toSend.empty()) {
        const ssize_t sent =
            ::send(client.socket, client.toSend.data(), client.toSend.size(), MSG_NOSIGNAL);
        if (sent > 0) {
            client.toSend.erase(0, static_cast<std::size_t>(sent));
        } else if (sent < 0 && errno == EINTR) {
            continue;
        } else {
            return sent < 0 && errno == EAGAIN; // an event comes when it takes more
        }
    }
    busy_ += client.answer.entries ? 1 : 0;
    return static_cast<bool>(client.answer.entries); // one request, one answer
}

} // namespace OvixAgent
