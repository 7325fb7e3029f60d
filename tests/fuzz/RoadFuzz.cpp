#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "RoadRunner.h"

namespace {

using namespace Fuzz;
using Differential::Road;
using Blob = std::vector<std::uint8_t>;

/// Sends and receives blobs, with their sizes.
class Channel {
  public:
    explicit Channel(int socket) : socket_(socket) {}

    bool send(Bytes blob) const {
        const std::uint64_t size = blob.size();
        return all(&size, sizeof size, ::write) && all(blob.data(), blob.size(), ::write);
    }
    /// False at the end.
    bool receive(Blob& blob) const {
        std::uint64_t size = 0;
        if (!all(&size, sizeof size, ::read)) {
            return false;
        }
        blob.resize(size);
        return all(blob.data(), size, ::read);
    }

  private:
    template <typename Byte, typename Transfer>
    bool all(Byte* bytes, std::size_t size, Transfer transfer) const {
        auto* at =
            reinterpret_cast<std::conditional_t<std::is_const_v<Byte>, const char, char>*>(bytes);
        for (std::size_t done = 0; done < size;) {
            const ssize_t now = transfer(socket_, at + done, size - done);
            if (now == 0 || (now < 0 && errno != EINTR)) { // which libFuzzer's clock causes
                return false;
            }
            done += static_cast<std::size_t>(std::max<ssize_t>(now, 0));
        }
        return true;
    }

    int socket_;
};

void put(Blob& to, std::uint64_t number) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&number);
    to.insert(to.end(), bytes, bytes + sizeof number);
}

Blob blobOf(const Answers& answers) {
    Blob blob;
    for (const auto& step : answers) {
        put(blob, step.size());
        for (const Differential::ScriptFrame& frame : step) {
            put(blob, frame.port);
            put(blob, frame.bytes.size());
            blob.insert(blob.end(), frame.bytes.begin(), frame.bytes.end());
        }
    }
    return blob;
}

Answers answersOf(const Blob& blob) {
    Answers answers;
    Input from(blob.data(), blob.size());
    while (!from.isEmpty()) {
        auto& step = answers.emplace_back(from.number<std::uint64_t>());
        for (Differential::ScriptFrame& frame : step) {
            frame.port = static_cast<std::uint32_t>(from.number<std::uint64_t>());
            const Bytes bytes = from.bytes(from.number<std::uint64_t>());
            frame.bytes.assign(bytes.begin(), bytes.end());
        }
    }
    return answers;
}

/// What a process is asked to do with an input.
enum class Request : std::uint64_t { digests, lines };

/// The definition, in a process of its own, since there may be only one router in each.
class DefinitionProcess {
  public:
    explicit DefinitionProcess(Keeping keeping) {
        int sockets[2];
        check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) == 0, "no sockets");
        const pid_t parent = getpid();
        if (fork() == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() == parent) {
                serve(Channel(sockets[1]), keeping);
            }
            _exit(0);
        }
        close(sockets[1]);
        channel_.emplace(sockets[0]);
    }

    Blob ask(Request what, Bytes input, const Answers& answers) {
        Blob request;
        put(request, static_cast<std::uint64_t>(what));
        Blob reply;
        check(channel_->send(request) && channel_->send(input) && channel_->send(blobOf(answers)) &&
                  channel_->receive(reply),
              "the process of the definition has ended");
        return reply;
    }

  private:
    [[noreturn]] static void serve(const Channel& channel, Keeping keeping) {
        RoadRunner runner(Road::definition, keeping);
        Blob request;
        Blob input;
        Blob answers;
        while (channel.receive(request) && channel.receive(input) && channel.receive(answers)) {
            const bool wantsLines = request[0] == static_cast<std::uint8_t>(Request::lines);
            if (wantsLines) {
                runner.forget();
            }
            const Answers given = answersOf(answers);
            channel.send(replyOf(runner.run(input, &given, nullptr, wantsLines), wantsLines));
        }
        _exit(0);
    }
    static Blob replyOf(const Outcome& outcome, bool wantsLines) {
        Blob reply;
        for (const std::uint64_t digest : outcome.digests) {
            put(reply, digest);
        }
        if (wantsLines) {
            reply.clear();
            for (const std::string& line : outcome.lines) {
                reply.insert(reply.end(), line.begin(), line.end());
                reply.push_back('\n');
            }
        }
        return reply;
    }

    std::optional<Channel> channel_;
};

/// Both roads, each with what it keeps from input to input.
struct Roads {
    explicit Roads(Keeping keeping) : definition(keeping), fast(Road::fast, keeping) {}

    DefinitionProcess definition; ///< before there is anything that a process would inherit
    RoadRunner fast;
};

/// Set where inputs are made one from the other and are many; of those that are run again each
/// counts by itself.
const char* historyPath() {
    return std::getenv("OVIX_FUZZ_HISTORY");
}

Roads* makeRoads() {
    if (historyPath() == nullptr) {
        return new Roads(Keeping::inputByInput);
    }
    auto* const both = new Roads(Keeping::forLong);
    std::FILE* const history = std::fopen(historyPath(), "wb");
    check(history != nullptr, "the history cannot be opened");
    both->fast.historyIs(history);
    return both;
}

Roads& roads() {
    static Roads& both = *makeRoads(); // outlives what a router refers to
    return both;
}

/// Both roads again, by new routers and in words.
[[noreturn]] void tellDifference(Bytes input, const Answers& answers) {
    Roads& both = roads();
    both.fast.forget();
    const Outcome fast = both.fast.run(input, &answers, nullptr, true);
    const Blob reply = both.definition.ask(Request::lines, input, answers);
    std::string lines;
    for (const std::string& line : fast.lines) {
        lines += line + '\n';
    }
    const std::string expected(reply.begin(), reply.end());
    std::fprintf(stderr, "---- by the definition\n%s---- by the fast path%s\n%s", expected.c_str(),
                 lines == expected ? ": the same with new routers" : "", lines.c_str());
    check(false, "the fast path differs from its definition");
    std::abort();
}

} // namespace

unsigned Fuzz::worldNow() {
    return roads().fast.world();
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    roads();
    std::atexit(
        [] { std::fprintf(stderr, "%" PRIu64 " frames by both roads\n", roads().fast.frames()); });
    return 0;
}

/// Frames and changes, received by the fast path and by its definition: both do the same, every
/// frame has one fate, and the answers come back in.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Roads& both = roads();
    const std::vector<std::uint8_t> input = wholeSteps({data, size});
    Answers answers;
    const Outcome fast = both.fast.run(input, nullptr, &answers, false);
    const Blob reply = both.definition.ask(Request::digests, input, answers);
    const bool isSame = reply.size() == fast.digests.size() * sizeof(std::uint64_t) &&
                        std::memcmp(reply.data(), fast.digests.data(), reply.size()) == 0;
    if (!isSame) {
        tellDifference(input, answers);
    }
    return 0;
}
