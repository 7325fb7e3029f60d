#include "Live/carrier/Carrier.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Live/ports/InterfaceControl.h"
#include "Posix/SystemError.h"

namespace OvixAgent {

namespace {

/// The agent's end of the pipe, for a process that is about to die: writing its core may take
/// longer than its neighbours should wait.
std::atomic<int> pipeOfDying{-1};

void closeBeforeDying(int) {
    close(pipeOfDying.load());
}

/// Where nobody else handles them; the default then does what it always does.
void handleFatalSignals() {
    for (const int fatal : {SIGABRT, SIGSEGV, SIGFPE, SIGILL}) {
        struct sigaction now {};
        if (sigaction(fatal, nullptr, &now) == 0 && now.sa_handler == SIG_DFL) {
            struct sigaction wanted {};
            wanted.sa_handler = closeBeforeDying;
            wanted.sa_flags = static_cast<int>(SA_RESETHAND);
            sigaction(fatal, &wanted, nullptr);
        }
    }
}

/// A session of its own, and no signal but SIGKILL, so that what ends the agent does not end it.
class SpawnAttributes {
  public:
    SpawnAttributes() {
        sigset_t all;
        sigfillset(&all);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }

    const posix_spawnattr_t* get() const noexcept { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

/// The pipe as standard input; standard output is the agent's own, and not for the holder.
class SpawnFiles {
  public:
    explicit SpawnFiles(int input) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
        posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    SpawnFiles(const SpawnFiles&) = delete;
    SpawnFiles& operator=(const SpawnFiles&) = delete;
    ~SpawnFiles() { posix_spawn_file_actions_destroy(&actions_); }

    const posix_spawn_file_actions_t* get() const noexcept { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

std::string nameOf(unsigned int interface) {
    return nameOfInterface(interface, std::to_string(interface));
}

} // namespace

Carrier::Carrier(LivePorts& ports) : ports_(&ports) {
    for (const auto& port : ports_->all()) {
        if (const unsigned int interface = port->linkIndex(); interface != 0) {
            if (const int refused = power_.tryOut(interface); refused != 0) {
                Posix::fail(("--carrier: " + nameOf(interface)).c_str(), refused);
            }
        }
    }
    startHolder();
    handleFatalSignals();
}

// An agent that is started as soon as this one has ended finds everything taken down.
Carrier::~Carrier() {
    pipeOfDying = -1;
    pipe_ = Posix::FileDescriptor();
    waitpid(holder_, nullptr, 0);
}

void Carrier::startHolder() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        Posix::fail("--carrier: making a pipe");
    }
    const Posix::FileDescriptor input(ends[0]);
    pipe_ = Posix::FileDescriptor(ends[1]);
    pipeOfDying = ends[1];
    fcntl(ends[1], F_SETFL, O_NONBLOCK); // frames wait for nobody
    held_.assign(ports_->all().size(), 0);
    tellHolder(); // which finds it in the pipe, even if the agent ends meanwhile
    std::array<char, 16> name{};
    std::strncpy(name.data(), carrierHolder, name.size() - 1);
    std::array<char*, 2> words{name.data(), nullptr};
    const int refused = posix_spawn(&holder_, "/proc/self/exe", SpawnFiles(ends[0]).get(),
                                    SpawnAttributes().get(), words.data(), environ);
    if (refused != 0) {
        Posix::fail("--carrier: starting the holder", refused);
    }
}

bool Carrier::hasHolderEnded() {
    return waitpid(holder_, nullptr, WNOHANG) == holder_;
}

void Carrier::hold() {
    if (hasHolderEnded()) {
        startHolder();
    }
    tellHolder();
    for (const unsigned int interface : held_) {
        power_.giveBack(interface); // refused: it has gone, or the next call does it
    }
}

/// A pipe takes so few bytes in whole or not at all.
void Carrier::tellHolder() {
    const auto& all = ports_->all();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const unsigned int interface = all[i]->linkIndex();
        const bool isKnown =
            interface == 0 || interface == held_[i] ||
            write(pipe_.value(), &interface, sizeof interface) == ssize_t{sizeof interface};
        held_[i] = isKnown ? interface : 0;
    }
}

void giveBackLinks(LivePorts& ports) {
    LinkPower power;
    for (const auto& port : ports.all()) {
        if (port->linkIndex() != 0) {
            power.giveBack(port->linkIndex());
        }
    }
}

int holdCarrier() {
    prctl(PR_SET_NAME, carrierHolder);
    close_range(STDERR_FILENO + 1, ~0U, 0);
    LinkPower power;
    std::vector<unsigned int> interfaces;
    unsigned int interface = 0;
    while (read(STDIN_FILENO, &interface, sizeof interface) == ssize_t{sizeof interface}) {
        interfaces.push_back(interface);
    }
    int failed = 0;
    for (const unsigned int each : interfaces) {
        const int refused = power.takeDown(each);
        if (refused != 0 && refused != ENODEV) {
            failed = 1;
            std::fprintf(stderr, "%s: %s: %s\n", carrierHolder, nameOf(each).c_str(),
                         std::strerror(refused));
        }
    }
    return failed;
}

} // namespace OvixAgent
