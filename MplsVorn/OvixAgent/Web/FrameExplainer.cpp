#include "Web/FrameExplainer.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "Control/ControlClient.h"

namespace OvixAgent {

namespace {

constexpr int longestMs = 20'000;
constexpr std::size_t longestPage = std::size_t{4} << 20U;
/// The child's ends, beside its standard ones.
constexpr int captureEnd = 3;
constexpr int pageEnd = 4;

/// A file in memory, whose descriptor is none of the child's.
Posix::FileDescriptor memoryFile(const std::string& content) {
    const Posix::FileDescriptor made(memfd_create("explain", MFD_CLOEXEC));
    Posix::FileDescriptor file(fcntl(made.value(), F_DUPFD_CLOEXEC, 16));
    if (write(file.value(), content.data(), content.size()) !=
        static_cast<ssize_t>(content.size())) {
        file = Posix::FileDescriptor();
    }
    return file;
}

std::string contentOf(const Posix::FileDescriptor& file) {
    const auto end = static_cast<std::size_t>(std::max<off_t>(lseek(file.value(), 0, SEEK_END), 0));
    std::string content(std::min(end, longestPage), '\0');
    const ssize_t size = pread(file.value(), content.data(), content.size(), 0);
    content.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return content;
}

void append(std::string& to, std::uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        to += static_cast<char>(value >> shift & 0xffU);
    }
}

std::string bytesOf(const std::string& hex) {
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    }
    return bytes;
}

/// A pcap file with nanoseconds, of little-endian words, with one Ethernet frame.
std::string captureOf(const std::string& bytes, std::uint64_t time, std::uint32_t length) {
    constexpr std::uint64_t second = 1'000'000'000;
    std::string file;
    for (const std::uint32_t word : {0xa1b23c4dU, 0x00040002U, 0U, 0U, 65535U, 1U}) {
        append(file, word);
    }
    append(file, static_cast<std::uint32_t>(time / second));
    append(file, static_cast<std::uint32_t>(time % second));
    append(file, static_cast<std::uint32_t>(bytes.size()));
    append(file, length);
    return file + bytes;
}

/// How ovixctl is started: by no shell, without signals that are blocked here, and with these
/// descriptors alone.
class Start {
  public:
    Start(const Posix::FileDescriptor& capture, const Posix::FileDescriptor& page,
          const Posix::FileDescriptor& said) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions_, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, said.value(), 2);
        posix_spawn_file_actions_adddup2(&actions_, capture.value(), captureEnd);
        posix_spawn_file_actions_adddup2(&actions_, page.value(), pageEnd);
        posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
    }
    Start(const Start&) = delete;
    Start& operator=(const Start&) = delete;
    ~Start() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    /// The process, or -1.
    int run(std::vector<std::string> words) const {
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        pid_t process = -1;
        const int failed = posix_spawn(&process, arguments.front(), &actions_, &attributes_,
                                       arguments.data(), environ);
        return failed == 0 ? process : -1;
    }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

std::string ovixctl() {
    std::error_code failed;
    return std::filesystem::read_symlink("/proc/self/exe", failed).parent_path() / "ovixctl";
}

} // namespace

FrameExplainer::FrameExplainer(std::string control, std::string tables)
    : control_(std::move(control)), tables_(std::move(tables)), stops_(eventfd(0, EFD_CLOEXEC)) {}

void FrameExplainer::stop() const {
    eventfd_write(stops_.value(), 1);
}

Tessel::Result<FrameExplainer::Frame> FrameExplainer::recorded(std::uint64_t sequence) const {
    const auto answer = askAgent(control_,
                                 fmt::format(R"({{"command":"recorded-frames","after":{}}})",
                                             sequence == 0 ? 0 : sequence - 1),
                                 std::chrono::seconds(2));
    if (!answer) {
        return answer.refused();
    }
    try {
        const auto all = nlohmann::json::parse(answer.value());
        for (const auto& frame : all.at("recorded-frames")) {
            if (frame.at("sequence") == sequence && frame.at("own").get<bool>()) {
                return Tessel::Refused{"this router has made the frame itself: it came in at no "
                                       "port; explain the frame that it answers"};
            }
            if (frame.at("sequence") == sequence) {
                return Frame{frame.at("port"), captureOf(bytesOf(frame.at("bytes")),
                                                         frame.at("time"), frame.at("length"))};
            }
        }
    } catch (const std::exception&) {
        return Tessel::Refused{"the agent's answer is not understood"};
    }
    return Tessel::Refused{"the frame is not kept any more: others of its reason came behind it"};
}

/// False when it had to be ended.
bool FrameExplainer::isEnded(int process) const {
    const Posix::FileDescriptor watched(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    std::array<pollfd, 2> events{{{watched.value(), POLLIN, 0}, {stops_.value(), POLLIN, 0}}};
    poll(events.data(), events.size(), longestMs);
    const bool isOver = events[0].revents != 0;
    if (!isOver) {
        kill(process, SIGKILL);
    }
    return isOver;
}

Tessel::Result<std::string> FrameExplainer::page(std::uint64_t sequence) const {
    const Tessel::Result<Frame> frame = recorded(sequence);
    if (!frame) {
        return frame.refused();
    }
    const Posix::FileDescriptor capture = memoryFile(frame.value().capture);
    const Posix::FileDescriptor page = memoryFile({});
    const Posix::FileDescriptor said = memoryFile({});
    std::vector<std::string> words{ovixctl(), "--control", control_};
    if (!tables_.empty()) {
        words.insert(words.end(), {"--tables", tables_});
    }
    words.insert(words.end(),
                 {"explain", "--port", frame.value().port, fmt::format("/dev/fd/{}:1", captureEnd),
                  "--html", fmt::format("/dev/fd/{}", pageEnd)});
    const int process = Start(capture, page, said).run(words);
    if (process < 0) {
        return Tessel::Refused{"ovixctl cannot be started: is it beside ovix-agent?"};
    }
    constexpr int least = 19;
    setpriority(PRIO_PROCESS, static_cast<id_t>(process), least);
    const bool hasEnded = isEnded(process);
    int status = 0;
    waitpid(process, &status, 0);
    std::string content = contentOf(page);
    if (!hasEnded || !WIFEXITED(status) || WEXITSTATUS(status) > 1 || content.empty()) {
        const std::string why = contentOf(said);
        return Tessel::Refused{!hasEnded     ? "it took too long"
                               : why.empty() ? "ovixctl failed"
                                             : why};
    }
    return content;
}

} // namespace OvixAgent
