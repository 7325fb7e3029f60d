#include "Control/ControlServer.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <list>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace ControlServerTest {

using OvixAgent::ControlServer;

namespace {

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), address.sun_path);
    return address;
}

int connectedTo(const std::string& path) {
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const sockaddr_un address = addressOf(path);
    EXPECT_EQ(connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return made;
}

/// One who asks; never waits.
class Asker {
  public:
    explicit Asker(const std::string& path) : socket_(connectedTo(path)) {}
    Asker(const Asker&) = delete;
    Asker& operator=(const Asker&) = delete;
    ~Asker() { end(); }

    void say(const std::string& text) const {
        EXPECT_EQ(send(socket_, text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }
    void endOfRequest() const { shutdown(socket_, SHUT_WR); }
    /// What has come so far; notes whether the server has closed.
    std::string heard() {
        std::string all;
        char bytes[65536];
        ssize_t got = 0;
        while ((got = recv(socket_, bytes, sizeof bytes, 0)) > 0) {
            all.append(bytes, static_cast<std::size_t>(got));
        }
        isOver_ = got == 0 || errno != EAGAIN;
        return all;
    }
    bool isOver() const { return isOver_; }
    void end() {
        if (socket_ >= 0) {
            close(socket_);
        }
        socket_ = -1;
    }

  private:
    int socket_;
    bool isOver_ = false;
};

class ControlServerTest : public testing::Test {
  protected:
    ControlServerTest() { std::filesystem::create_directory(directory); }
    ~ControlServerTest() override { std::filesystem::remove_all(directory); }

    /// Lets the server deal with all that has come.
    void serve(int rounds = 60) {
        while (rounds-- > 0) {
            server.serve();
        }
    }
    std::string answerTo(const std::string& bytes) {
        Asker asker(path);
        asker.say(bytes);
        serve();
        const std::string heard = asker.heard();
        EXPECT_TRUE(asker.isOver());
        return heard;
    }

    const std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("control-test-" + std::to_string(getpid()));
    const std::string path = directory / "sub" / "agent.sock";
    unsigned asked = 0;
    ControlServer::Handler handler = [this](const std::string& wanted) {
        ++asked;
        return wanted == "long" ? std::string(3'000'000, 'x') : "answer to " + wanted;
    };
    ControlServer server{path, handler};
    const std::string request = "status\n";
    const std::string answer = "answer to status\n";
};

std::string errorOf(const std::string& path) {
    try {
        const ControlServer made(path, [](const std::string&) { return std::string(); });
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

} // namespace

TEST_F(ControlServerTest, AnswersARequestAndClosesTheConnection) {
    EXPECT_EQ(answerTo(request), answer);
}

TEST_F(ControlServerTest, AcceptsARequestInPieces) {
    Asker asker(path);
    for (const char byte : request) {
        EXPECT_EQ(asker.heard(), "");
        EXPECT_FALSE(asker.isOver());
        asker.say(std::string(1, byte));
        serve(3);
    }
    EXPECT_EQ(asker.heard(), answer);
    EXPECT_TRUE(asker.isOver());
}

TEST_F(ControlServerTest, OnlyTheFirstOfTwoRequestsIsAnswered) {
    EXPECT_EQ(answerTo(request + "more\n"), answer);
    EXPECT_EQ(asked, 1U);
}

TEST_F(ControlServerTest, AnswersAClientThatHasClosedItsSide) {
    Asker asker(path);
    asker.say(request);
    asker.endOfRequest();
    serve();
    EXPECT_EQ(asker.heard(), answer);
}

TEST_F(ControlServerTest, ARequestEndsWithALine) {
    Asker asker(path);
    asker.say("status");
    serve();
    EXPECT_EQ(asker.heard(), "");
    EXPECT_FALSE(asker.isOver());
    asker.endOfRequest();
    serve();
    EXPECT_EQ(asker.heard(), "");
    EXPECT_TRUE(asker.isOver());
    EXPECT_EQ(asked, 0U);
}

TEST_F(ControlServerTest, DisconnectsAClientWhoseRequestIsTooLong) {
    for (const char* end : {"", "\n"}) {
        Asker asker(path);
        asker.say(std::string(70'000, ' ') + end);
        serve();
        EXPECT_EQ(asker.heard(), "");
        EXPECT_TRUE(asker.isOver());
    }
    EXPECT_EQ(asked, 0U);
    EXPECT_EQ(answerTo(std::string(60'000, ' ') + request),
              "answer to " + std::string(60'000, ' ') + request);
}

TEST_F(ControlServerTest, HandlesClientsThatDisconnect) {
    for (const std::string& last :
         {std::string(), request.substr(0, 5), request, std::string("long\n")}) {
        Asker asker(path);
        asker.say(last);
        asker.end();
        serve();
    }
    EXPECT_EQ(asked, 2U);
    EXPECT_EQ(answerTo(request), answer);
}

TEST_F(ControlServerTest, AClientThatDoesNotReadBlocksNobody) {
    Asker slow(path);
    slow.say("long\n");
    serve();
    EXPECT_EQ(answerTo(request), answer);
    std::size_t got = 0;
    for (int round = 0; round < 1000 && !slow.isOver(); ++round) {
        got += slow.heard().size();
        serve(2);
    }
    EXPECT_TRUE(slow.isOver());
    EXPECT_GT(got, 3'000'000U);
}

TEST_F(ControlServerTest, DisconnectsTheOldestOfTooManyClients) {
    std::list<Asker> waiting;
    for (std::size_t i = 0; i < ControlServer::maxClients + 2; ++i) {
        waiting.emplace_back(path);
        serve();
    }
    std::vector<bool> over;
    for (Asker& asker : waiting) {
        asker.heard();
        over.push_back(asker.isOver());
    }
    std::vector<bool> expected(ControlServer::maxClients + 2, false);
    expected[0] = expected[1] = true;
    EXPECT_EQ(over, expected);
    waiting.back().say(request);
    serve();
    EXPECT_EQ(waiting.back().heard(), answer);
}

TEST_F(ControlServerTest, TheSocketBelongsToTheUserAndIsRemoved) {
    struct stat found {};
    ASSERT_EQ(stat(path.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777U, 0600U);
    const std::string other = directory / "other.sock";
    { const ControlServer shortLived(other, handler); }
    EXPECT_FALSE(std::filesystem::exists(other));
}

TEST_F(ControlServerTest, DoesNotReplaceAnotherServersSocket) {
    EXPECT_EQ(errorOf(path), "control socket " + path +
                                 ": another agent serves it; give this one its own by --control");
    serve();
    EXPECT_EQ(answerTo(request), answer);
}

TEST_F(ControlServerTest, ReplacesTheSocketOfAKilledProcess) {
    const std::string left = directory / "left.sock";
    const int former = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(left);
    ASSERT_EQ(bind(former, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(former, 1), 0);
    close(former);
    ASSERT_TRUE(std::filesystem::exists(left));
    ControlServer next(left, handler);
    Asker asker(left);
    asker.say(request);
    for (int i = 0; i < 5; ++i) {
        next.serve();
    }
    EXPECT_EQ(asker.heard(), answer);
}

TEST_F(ControlServerTest, KeepsAFileThatIsNotASocket) {
    const std::string file = directory / "notes.txt";
    std::ofstream(file) << "mine";
    EXPECT_NE(errorOf(file), "");
    std::string kept;
    std::ifstream(file) >> kept;
    EXPECT_EQ(kept, "mine");
}

TEST_F(ControlServerTest, ReportsWhyAPathCannotBeUsed) {
    const std::string tooLong = directory / std::string(100, 'x');
    EXPECT_EQ(errorOf(tooLong), "control socket " + tooLong + ": the path is too long");
    const std::string beneathAFile = path + "/agent.sock";
    EXPECT_EQ(errorOf(beneathAFile),
              "control socket " + beneathAFile + ": " + path + " is no directory");
}

/// So many entries, one for each call.
OvixAgent::Listing numbers(int count) {
    return [count, next = 0](std::string& entry) mutable {
        entry = next < count ? std::to_string(next) : "";
        return next++ < count;
    };
}

TEST_F(ControlServerTest, AListIsMadeWhileItIsSentAndEndsAsItIsTold) {
    handler = [](const std::string& wanted) {
        return OvixAgent::ControlAnswer("{[", numbers(std::stoi(wanted)), "]}");
    };
    ControlServer listing(directory / "sub" / "list.sock", handler);
    const auto listed = [&](const std::string& count) {
        Asker asker(listing.path());
        asker.say(count + "\n");
        std::string heard;
        for (listing.serve(); listing.isBusy(); listing.serve()) {
            heard += asker.heard();
        }
        heard += asker.heard();
        EXPECT_TRUE(asker.isOver());
        return heard;
    };
    EXPECT_EQ(listed("0"), "{[]}\n");
    EXPECT_EQ(listed("3"), "{[0,1,2]}\n");
    const std::string many = listed("300000");
    EXPECT_EQ(std::count(many.begin(), many.end(), ','), 299'999);
    EXPECT_TRUE(many.ends_with(",299999]}\n"));
}

TEST_F(ControlServerTest, OnlyAsMuchOfAListIsMadeAsIsTaken) {
    int made = 0;
    ControlServer listing(directory / "sub" / "list.sock", [&](const std::string&) {
        return OvixAgent::ControlAnswer(
            "",
            [&](std::string& entry) {
                entry.assign(1000, 'x');
                return ++made < 1'000'000;
            },
            "");
    });
    Asker asker(listing.path());
    asker.say("list\n");
    for (listing.serve(); listing.isBusy(); listing.serve()) {
    }
    EXPECT_LT(made, 2000); // the rest has no room in the socket
    const int before = made;
    asker.heard();
    for (listing.serve(); made == before && listing.isBusy(); listing.serve()) {
    } // what has been made already goes first
    EXPECT_GT(made, before);
}

TEST_F(ControlServerTest, ADirectoryThatOthersCanReplaceIsRefused) {
    const std::string other = directory / "sub" / "other.sock";
    const auto said = [&] {
        const auto trusted = OvixAgent::checkControlDirectory(other);
        const std::string refused = trusted ? "" : trusted.refused().what;
        EXPECT_EQ(errorOf(other), refused);
        return refused;
    };
    const std::string sub = directory / "sub";
    const std::string begin = "control socket " + other + ": " + sub + " ";
    EXPECT_EQ(said(), "");
    for (const mode_t mode : {0777U, 0770U, 0702U}) {
        chmod(sub.c_str(), mode);
        EXPECT_EQ(said(), begin + "can be written by others") << mode;
    }
    chmod(sub.c_str(), 01777); // as /tmp
    EXPECT_EQ(said(), "");
    chmod(sub.c_str(), 0755);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(sub.c_str(), 65534, 65534), 0);
        EXPECT_EQ(said(), begin + "belongs to another user");
    }
}

TEST_F(ControlServerTest, ALinkOfAnotherUserToADirectoryIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const std::string link = directory / "link";
    std::filesystem::create_symlink("/run", link);
    EXPECT_TRUE(OvixAgent::checkControlDirectory(link + "/x.sock"));
    ASSERT_EQ(lchown(link.c_str(), 65534, 65534), 0);
    EXPECT_FALSE(OvixAgent::checkControlDirectory(link + "/x.sock"));
}

} // namespace ControlServerTest
