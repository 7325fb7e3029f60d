#include <array>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Control/ControlServer.h"
#include "Input.h"
#include "Summary/Summary.h"

namespace {

using namespace OvixAgent;

/// Answers as a running agent does, whose names are what was asked: they may be anything, too.
ControlAnswer answer(const std::string& request) {
    const auto command = requestedCommand(request);
    if (!command) {
        return refusalAnswer(command.refused().what);
    }
    if (command.value() == "counters") {
        const auto labels = [left = 3](std::string& entry) mutable {
            entry = labelText({16, {1, 64}});
            return left-- > 0;
        };
        return {"{\"labels\":[", labels,
                "],\"counters\":" + countersText({{"Drop", "module", request, 1}}) + "}"};
    }
    if (command.value() == "status") {
        Summary summary;
        summary.problems.push_back(request);
        return statusAnswer(summary, request, requestedText(request, "vrf"));
    }
    return refusalAnswer("there is no command \"" + command.value() + "\"");
}

class TemporaryFolder {
  public:
    TemporaryFolder() { Fuzz::check(mkdtemp(path_.data()) != nullptr, "no temporary folder"); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() { rmdir(path_.data()); }
    std::string path() const { return path_.data(); }

  private:
    std::array<char, 32> path_{"/tmp/ovix-fuzz-XXXXXX"};
};

/// Who asks: one of several at a time, who need not wait, finish, or listen.
class Client {
  public:
    Client() = default;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { end(); }

    void say(const std::string& path, Fuzz::Bytes bytes) {
        if (socket_ < 0) {
            socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            std::copy(path.begin(), path.end(), address.sun_path);
            if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
                0) {
                end();
                return;
            }
        }
        send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    void endRequest() const { shutdown(socket_, SHUT_WR); }
    void listen() {
        std::array<char, 4096> bytes{};
        ssize_t got = 0;
        while (socket_ >= 0 && (got = recv(socket_, bytes.data(), bytes.size(), 0)) > 0) {
            heard_.append(bytes.data(), static_cast<std::size_t>(got));
        }
    }
    /// An answer is a line of JSON; a part of one when it was not waited for.
    void end() {
        if (!heard_.empty() && heard_.back() == '\n') {
            Fuzz::check(heard_.find('\n') + 1 == heard_.size(), "an answer of several lines");
            Fuzz::check(nlohmann::json::accept(heard_), "an answer that is not JSON", heard_);
        }
        heard_.clear();
        if (socket_ >= 0) {
            close(socket_);
            socket_ = -1;
        }
    }

  private:
    int socket_ = -1;
    std::string heard_;
};

int lowestFreeDescriptor() {
    const int free = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(free);
    return free;
}

} // namespace

/// What up to four clients say and do, in turns: a byte says who and what, the next how many bytes
/// follow that are said.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TemporaryFolder folder;
    static ControlServer server(folder.path() + "/control.sock", answer);
    const int before = lowestFreeDescriptor();
    Fuzz::Input input(data, size);
    {
        std::array<Client, 4> clients;
        while (!input.isEmpty()) {
            const std::uint8_t what = input.byte();
            Client& client = clients[what % clients.size()];
            switch (what / clients.size() % 8) {
            case 0:
                client.endRequest();
                break;
            case 1:
                client.listen();
                client.end();
                break;
            case 2:
                client.listen();
                break;
            case 3:
                client.say(server.path(), input.bytes(std::size_t{input.byte()} * 256));
                break;
            default:
                client.say(server.path(), input.bytes(input.byte()));
            }
            if (what / 32 % 4 != 0) {
                server.serve();
            }
        }
        server.serve();
        for (Client& client : clients) {
            client.listen();
        }
    }
    server.serve();
    Fuzz::check(lowestFreeDescriptor() == before, "descriptors of clients that have gone stay");
    return 0;
}
