#include "Posix/ServiceAccounts.h"

#include <algorithm>
#include <array>
#include <grp.h>
#include <optional>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Posix::ServiceAccounts {

namespace {

constexpr const char* service = "ovix";
constexpr const char* admins = "ovix-admin";

std::optional<uid_t> userOf(const char* name) {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> texts;
    getpwnam_r(name, &entry, texts.data(), texts.size(), &found);
    return found != nullptr ? std::optional(entry.pw_uid) : std::nullopt;
}

std::optional<gid_t> groupOf(const char* name) {
    group entry{};
    group* found = nullptr;
    std::vector<char> texts(65536); // with the names of its members
    getgrnam_r(name, &entry, texts.data(), texts.size(), &found);
    return found != nullptr ? std::optional(entry.gr_gid) : std::nullopt;
}

/// Of the process at the other end; none when the kernel does not say.
std::vector<gid_t> groupsOf(int connection) {
    std::vector<gid_t> groups(65536);
    auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    const int refused = getsockopt(connection, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
    groups.resize(refused == 0 ? size / sizeof(gid_t) : 0);
    return groups;
}

} // namespace

bool isTrusted(uid_t user) {
    return user == 0 || user == geteuid() || isService(user);
}

bool isService(uid_t user) {
    return user != 0 && userOf(service) == user;
}

bool isAdmins(gid_t group) {
    return groupOf(admins) == group;
}

void shareWithAdmins(int file, mode_t mode) {
    const auto group = groupOf(admins);
    if (group && fchown(file, static_cast<uid_t>(-1), *group) == 0) {
        fchmod(file, mode);
    }
}

void shareWithReaders(const char* path, mode_t mode) {
    const auto group = groupOf(service);
    if (group && lchown(path, static_cast<uid_t>(-1), *group) == 0) {
        chmod(path, mode);
    }
}

bool mayChange(int connection) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return false;
    }
    const auto group = groupOf(admins);
    const std::vector<gid_t> groups = groupsOf(connection);
    return peer.uid == 0 || peer.uid == geteuid() ||
           (group && (peer.gid == *group ||
                      std::find(groups.begin(), groups.end(), *group) != groups.end()));
}

} // namespace Posix::ServiceAccounts
