#include "publishing/AllowedPeers.h"

#include <array>
#include <charconv>
#include <pwd.h>
#include <unistd.h>

#include "kernel/PeerUser.h"

namespace OvixFpm {

namespace {

std::optional<uid_t> userOf(const std::string& name) {
    uid_t number = 0;
    const auto read = std::from_chars(name.data(), name.data() + name.size(), number);
    if (read.ec == std::errc() && read.ptr == name.data() + name.size()) {
        return number;
    }
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> texts;
    const int error = getpwnam_r(name.c_str(), &entry, texts.data(), texts.size(), &found);
    return error == 0 && found != nullptr ? std::optional(entry.pw_uid) : std::nullopt;
}

} // namespace

AllowedPeers::AllowedPeers() : users_{0, geteuid()} {
    if (const auto frr = userOf("frr")) {
        users_.insert(*frr);
    }
}

Tessel::Result<AllowedPeers> AllowedPeers::fromNames(const std::vector<std::string>& names) {
    AllowedPeers made;
    made.users_ = {0, geteuid()};
    for (const std::string& name : names) {
        if (name == "any") {
            made.areAll_ = true;
        } else if (const auto user = userOf(name)) {
            made.users_.insert(*user);
        } else {
            return Tessel::Refused{"there is no user \"" + name + '"'};
        }
    }
    return made;
}

std::optional<std::string> AllowedPeers::refusal(const Posix::FileDescriptor& connection) const {
    if (areAll_) {
        return std::nullopt;
    }
    const std::optional<uid_t> user = peerUser(connection);
    if (!user) {
        return "whose connection it is cannot be found";
    }
    if (!users_.contains(*user)) {
        return "user " + std::to_string(*user) + " is not allowed";
    }
    return std::nullopt;
}

} // namespace OvixFpm
