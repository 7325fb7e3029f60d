#include "Log/LineOutput.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>

namespace OvixLog {

// Whether a descriptor blocks is a matter of the open file, which other processes may share: so the
// pipe or terminal is opened again. Where that is forbidden, poll says whether there is room.
LineOutput::LineOutput(int descriptor) noexcept : descriptor_(descriptor) {
    struct stat found {};
    if (fstat(descriptor, &found) != 0) {
        return;
    }
    if (S_ISSOCK(found.st_mode)) {
        way_ = Way::socket;
    } else if (S_ISFIFO(found.st_mode) || S_ISCHR(found.st_mode)) {
        const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
        own_ =
            Posix::FileDescriptor(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        way_ = own_.isOpen() ? Way::nonBlocking : Way::pollFirst;
    }
}

bool LineOutput::isReady() noexcept {
    pollfd place{own_.isOpen() ? own_.value() : descriptor_, POLLOUT, 0};
    const int milliseconds = isStuck_ ? 0 : static_cast<int>(patience.count());
    return poll(&place, 1, milliseconds) > 0;
}

bool LineOutput::write(std::string_view line) noexcept {
    std::array<char, mostBytes> cut;
    if (line.size() > mostBytes) {
        std::memcpy(cut.data(), line.data(), mostBytes);
        cut.back() = '\n';
        line = {cut.data(), mostBytes};
    }
    ssize_t written = -1;
    if (way_ == Way::file || isReady()) {
        written =
            way_ == Way::socket
                ? send(descriptor_, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                : ::write(own_.isOpen() ? own_.value() : descriptor_, line.data(), line.size());
    }
    isStuck_ = written != static_cast<ssize_t>(line.size());
    return !isStuck_;
}

} // namespace OvixLog
