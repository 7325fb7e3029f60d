#include "vtysh/Vtysh.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace OvixFpm {

namespace {

/// What the child has of this process: nothing but an output. The listener blocks signals, and
/// ignores that its reader has gone.
class SpawnSettings {
  public:
    explicit SpawnSettings(int output) {
        posix_spawn_file_actions_init(&files_);
        posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&files_, output, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&files_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawnattr_init(&attributes_);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        sigaddset(&signals, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&files_);
        posix_spawnattr_destroy(&attributes_);
    }

    /// Returns an error number.
    int spawn(const std::vector<std::string>& command, pid_t& process) const {
        std::vector<char*> words;
        words.reserve(command.size() + 1);
        for (const std::string& word : command) {
            words.push_back(const_cast<char*>(word.c_str()));
        }
        words.push_back(nullptr);
        std::array<char*, 2> environment{const_cast<char*>("PATH=/usr/sbin:/usr/bin:/sbin:/bin"),
                                         nullptr};
        return posix_spawn(&process, command.front().c_str(), &files_, &attributes_, words.data(),
                           environment.data());
    }

  private:
    posix_spawn_file_actions_t files_{};
    posix_spawnattr_t attributes_{};
};

} // namespace

Vtysh::Vtysh(const std::vector<std::string>& command, std::chrono::milliseconds patience)
    : name_(command.front()), end_(Clock::now() + patience) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        problem_ = std::strerror(errno);
        return;
    }
    output_ = Posix::FileDescriptor(ends[0]);
    const Posix::FileDescriptor theirs(ends[1]);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    if (const int error = SpawnSettings(ends[1]).spawn(command, process_); error != 0) {
        problem_ = std::strerror(error);
        process_ = -1;
    }
}

void Vtysh::kill() noexcept {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        process_ = -1;
    }
}

Tessel::Refused Vtysh::refuse(const std::string& why) {
    kill();
    output_ = Posix::FileDescriptor();
    return {name_ + " " + why};
}

/// False when it has printed too much.
bool Vtysh::read() {
    std::array<char, 65536> bytes;
    while (output_.isOpen() && text_.size() <= longestOutput) {
        const ssize_t got = ::read(output_.value(), bytes.data(), bytes.size());
        if (got > 0) {
            text_.append(bytes.data(), static_cast<std::size_t>(got));
        } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
            output_ = Posix::FileDescriptor();
        } else if (errno == EAGAIN) {
            break;
        }
    }
    return text_.size() <= longestOutput;
}

std::optional<Tessel::Result<std::string>> Vtysh::receive() {
    if (!problem_.empty()) {
        return refuse("cannot be started: " + problem_);
    }
    if (!read()) {
        return refuse("prints too much");
    }
    int status = 0;
    if (!output_.isOpen() && waitpid(process_, &status, WNOHANG) == process_) {
        process_ = -1;
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
            return Tessel::Result<std::string>(std::move(text_));
        }
        return refuse(WIFEXITED(status)
                          ? "has ended with " + std::to_string(WEXITSTATUS(status))
                          : "was ended by signal " + std::to_string(WTERMSIG(status)));
    }
    if (Clock::now() >= end_) {
        return refuse("takes too long");
    }
    return std::nullopt;
}

} // namespace OvixFpm
