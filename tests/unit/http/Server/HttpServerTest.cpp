#include "Server/HttpServer.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <list>
#include <sys/stat.h>
#include <unistd.h>

#include "HttpClient.h"

namespace HttpServerTest {

using OvixHttp::Endpoint;
using OvixHttp::HttpAnswer;
using OvixHttp::HttpRequest;
using OvixHttp::HttpRoute;
using OvixHttp::HttpServer;

HttpAnswer answerOf(std::string body) {
    HttpAnswer answer;
    answer.body = std::move(body);
    return answer;
}

/// A port that nobody uses.
std::uint16_t freePort() {
    const Posix::FileDescriptor probe(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(probe.value(), reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(probe.value(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    return ntohs(address.sin_port);
}

std::string get(const std::string& target) {
    return "GET " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

class HttpServerTest : public testing::Test {
  protected:
    HttpServer::Routes routes() {
        return {
            {"/text", {[](const HttpRequest&) { return answerOf("some text"); }, 0}},
            {"/echo",
             {[](const HttpRequest& request) {
                  return answerOf(
                      fmt::format("{}|{}", request.argument("word"), request.number("number")));
              },
              0,
              HttpRoute::defaultWaiting,
              {{"word"}, {"number", 1000}}}},
            {"/one",
             {[](const HttpRequest& request) { return answerOf(request.argument("number")); },
              0,
              HttpRoute::defaultWaiting,
              {{"number", ~std::uint64_t{0}, true}}}},
            {"/long", {[](const HttpRequest&) { return answerOf(std::string(1 << 20, 'x')); }, 0}},
            {"/fails",
             {[](const HttpRequest&) -> HttpAnswer { throw std::runtime_error("x"); }, 0}},
            {"/slow",
             {[this](const HttpRequest&) {
                  released_.wait_for(std::chrono::seconds(10));
                  return answerOf("at last");
              },
              1, 4}}};
    }
    std::string asked(const std::string& request) const {
        const HttpClient client(port_);
        client.say(request);
        return client.heard();
    }
    bool isServed() const {
        const std::string answer = asked(get("/text"));
        return answer.find("HTTP/1.1 200") == 0 && answer.find("\r\n\r\nsome text") != answer.npos;
    }

    std::uint16_t port_ = freePort();
    std::promise<void> held_;
    std::shared_future<void> released_{held_.get_future()};
    HttpServer server_{
        Endpoint::fromText(std::to_string(port_)).value(), {"router.example"}, routes()};
};

TEST_F(HttpServerTest, AnswersGetAndHead) {
    EXPECT_TRUE(isServed());
    const std::string head = asked("HEAD /text HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_EQ(head.find("HTTP/1.1 200"), 0U);
    EXPECT_NE(head.find("Content-Length: 9"), head.npos);
    EXPECT_EQ(head.find("some text"), head.npos);
    EXPECT_NE(asked(get("/echo?word=a%20b%3C&number=12")).find("\r\n\r\na b<|12"), head.npos);
    EXPECT_NE(asked(get("/echo?number=1000&word")).find("\r\n\r\n|1000"), head.npos);
    EXPECT_NE(head.find("Content-Security-Policy: default-src 'none'"), head.npos);
    EXPECT_NE(head.find("nosniff"), head.npos);
}

TEST_F(HttpServerTest, EverythingElseIsRefused) {
    const auto isRefused = [this](const std::string& request, const char* status) {
        const std::string answer = asked(request);
        EXPECT_EQ(answer.find(std::string("HTTP/1.1 ") + status), 0U)
            << request.substr(0, 60) << answer;
    };
    for (const char* const method : {"POST", "PUT", "DELETE", "OPTIONS", "PATCH", "CONNECT", "x"}) {
        isRefused(std::string(method) + " /text HTTP/1.1\r\nHost: localhost\r\n\r\n", "405");
    }
    isRefused(get("/"), "404");
    isRefused(get("/text/"), "404");
    isRefused(get("/../text"), "404");
    isRefused(get("/fails"), "500");
    isRefused("GET /text HTTP/1.1\r\nHost: localhost\r\nContent-Length: 3\r\n\r\nabc", "400");
    isRefused("GET /text HTTP/1.1\r\nHost: evil.example\r\n\r\n", "421");
    isRefused("GET /text HTTP/1.0\r\n\r\n", "421");
    isRefused("GET /text HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(16384, 'x') + "\r\n\r\n",
              "431");
    EXPECT_EQ(asked("GET /text HTTP/1.1\r\nHost: router.example:1\r\n\r\n").find("HTTP/1.1 200"),
              0U);
    EXPECT_TRUE(isServed());
}

TEST_F(HttpServerTest, AQueryThatIsNotUnderstoodIsRefusedByNameAndValue) {
    const auto refused = [this](const std::string& target) {
        const std::string answer = asked(get(target));
        EXPECT_EQ(answer.find("HTTP/1.1 400"), 0U) << target << answer;
        return answer.substr(answer.find("\r\n\r\n") + 4);
    };
    for (const char* const value :
         {"x", "-1", "+1", "12x", "1001", "0x1", "99999999999999999999"}) {
        EXPECT_EQ(refused(std::string("/echo?number=") + value),
                  fmt::format("parameter \"number\", value \"{}\": no number of 0 to 1000\n",
                              *value == '+' ? " 1" : value));
    }
    EXPECT_EQ(refused("/echo?number="),
              "parameter \"number\", value \"\": no number of 0 to 1000\n");
    EXPECT_EQ(refused("/echo?number"),
              "parameter \"number\", without a value: no number of 0 to 1000\n");
    EXPECT_EQ(refused("/echo?number=1%00x"),
              "parameter \"number\", value \"1?x\": no number of 0 to 1000\n");
    EXPECT_EQ(refused("/echo?word=a&number=1&word=b"),
              "parameter \"word\", value \"b\": given twice\n");
    EXPECT_EQ(refused("/echo?Word=a"),
              "parameter \"Word\", value \"a\": no such parameter; known here: word, number\n");
    EXPECT_EQ(refused("/text?v=1"),
              "parameter \"v\", value \"1\": no such parameter; none are taken here\n");
    EXPECT_EQ(refused("/one"), "parameter \"number\" is missing\n");
    EXPECT_LT(refused("/echo?number=" + std::string(5000, '7')).size(), 200U);
    EXPECT_EQ(asked(get("/text?")).find("HTTP/1.1 200"), 0U);
}

TEST_F(HttpServerTest, ManyWhoSayNothingHoldUpNobody) {
    const auto began = std::chrono::steady_clock::now();
    std::list<HttpClient> idle;
    for (std::size_t i = 0; i < 3 * HttpServer::mostConnections; ++i) {
        idle.emplace_back(port_);
        EXPECT_TRUE(idle.back().isConnected());
        idle.back().say(i % 2 == 0 ? "" : "GET /text HT"); // silent, or in the midst of it
    }
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(isServed());
    }
    EXPECT_EQ(idle.front().heard(2), ""); // closed long before its time is over
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(3)); // of 5 of silence
}

TEST_F(HttpServerTest, WhoDoesNotReadHoldsUpNobody) {
    std::list<HttpClient> deaf;
    for (std::size_t i = 0; i < 2 * HttpServer::mostConnections; ++i) {
        deaf.emplace_back(port_).say(get("/long"));
    }
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(isServed());
    }
}

TEST_F(HttpServerTest, AnAnswerThatTakesLongHoldsUpOnlyItsLane) {
    std::list<HttpClient> waiting;
    for (std::size_t i = 0; i < 12U; ++i) {
        waiting.emplace_back(port_).say(get("/slow"));
    }
    EXPECT_TRUE(isServed());
    EXPECT_EQ(waiting.back().heard().find("HTTP/1.1 503"), 0U); // too many ask for it
    EXPECT_TRUE(isServed());
    held_.set_value();
    EXPECT_NE(waiting.front().heard().find("at last"), std::string::npos);
}

TEST_F(HttpServerTest, TheAddressIsNotTakenTwice) {
    const Endpoint same = Endpoint::fromText(std::to_string(port_)).value();
    EXPECT_THROW(HttpServer(same, {}, routes()), std::runtime_error);
}

TEST_F(HttpServerTest, ALocalSocketIsItsUsersAlone) {
    const std::string path = testing::TempDir() + fmt::format("ovix-http-{}.sock", getpid());
    const Endpoint endpoint = Endpoint::fromText(path).value();
    {
        const HttpServer server(endpoint, {}, routes());
        struct stat found {};
        ASSERT_EQ(stat(path.c_str(), &found), 0);
        EXPECT_EQ(found.st_mode & 0777U, 0600U);
        const HttpClient client(path);
        client.say(get("/text"));
        EXPECT_NE(client.heard().find("some text"), std::string::npos);
        EXPECT_THROW(HttpServer(endpoint, {}, routes()), std::runtime_error);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    std::ofstream(path) << "a file of somebody's";
    EXPECT_THROW(HttpServer(endpoint, {}, routes()), std::runtime_error);
    std::filesystem::remove(path);
}

} // namespace HttpServerTest
