#pragma once

#include <arpa/inet.h>
#include <atomic>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "FpmRecordings.h"
#include "PublishingTesting.h"
#include "publishing/FpmServer.h"

namespace PublishingTesting {

inline sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A free port.
inline std::uint16_t freePort() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(probe, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size), 0);
    close(probe);
    return ntohs(address.sin_port);
}

/// zebra's end of a connection.
class Zebra {
  public:
    explicit Zebra(std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in address = loopback(port);
        EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    Zebra(const Zebra&) = delete;
    Zebra& operator=(const Zebra&) = delete;
    ~Zebra() { end(); }

    /// False when the other side has closed.
    bool say(std::span<const std::uint8_t> bytes) const {
        while (!bytes.empty()) {
            const ssize_t sent = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent < 0) {
                return false;
            }
            bytes = bytes.subspan(static_cast<std::size_t>(sent));
        }
        return true;
    }
    void tell(const std::string& recording) const {
        EXPECT_TRUE(say(TestSupport::Fpm::recorded(recording)));
    }
    /// Ends a say() of another thread, too.
    void cutOff() const { shutdown(socket_, SHUT_RDWR); }
    void end() {
        if (socket_ >= 0) {
            close(socket_);
        }
        socket_ = -1;
    }

  private:
    int socket_;
};

/// A server in a thread of its own over tables of this process. The test looks at the tables with a
/// reader of its own, as another process would.
class FpmServerFixture : public testing::Test {
  protected:
    static constexpr std::chrono::milliseconds never{3'600'000};

    ~FpmServerFixture() override {
        stop();
        close(stop_);
    }

    void serve(std::chrono::milliseconds sweepAfter = never) {
        port_ = freePort();
        settings_.listenAt = listenAt();
        settings_.sweepAfter = sweepAfter;
        server_.emplace(publisher_, settings_, [this](std::string_view, const std::string& line) {
            const std::lock_guard lock(mutex_);
            log_.push_back(line);
            connections_ += line.find("zebra is connected") == 0 ? 1U : 0U;
        });
        thread_ = std::thread([this] {
            server_->run(stop_);
            hasEnded_ = true;
        });
    }
    void stop() {
        if (thread_.joinable()) {
            askToStop();
            thread_.join();
        }
    }
    void askToStop() const { EXPECT_EQ(eventfd_write(stop_, 1), 0); }
    bool hasEnded() const { return hasEnded_; }
    /// How many have been made so far.
    unsigned connections() const { return connections_; }

    std::uint16_t port() const { return port_; }
    OvixFpm::ListenAddress listenAt() const {
        return OvixFpm::ListenAddress::fromText("127.0.0.1:" + std::to_string(port_)).value();
    }
    const OvixFpm::MessageCounts& counts() const { return server_->counts(); }
    std::vector<std::string> log() const {
        const std::lock_guard lock(mutex_);
        return log_;
    }
    bool hasLogged(const std::string& part) const {
        for (const std::string& line : log()) {
            if (line.find(part) != std::string::npos) {
                return true;
            }
        }
        return false;
    }
    /// Whether it becomes so within some seconds, looking at the newest tables.
    bool soon(const std::function<bool()>& isSo) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (std::chrono::steady_clock::now() < end) {
            reader->refresh();
            if (isSo()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

  private:
    std::uint16_t port_ = 0;
    MadeUpInterfaces interfaces_;
    Mpls::TablePublisher tables_{Tessel::TableMemory::ofProcess(std::size_t{64} << 20U)};
    Mpls::SharedPublisher shared_{tables_};
    OvixFpm::RoutePublisher publisher_{shared_, interfaces_};
    OvixFpm::FpmServer::Settings settings_;
    std::optional<OvixFpm::FpmServer> server_;
    std::thread thread_;
    std::atomic<bool> hasEnded_ = false;
    std::atomic<unsigned> connections_ = 0;
    int stop_ = eventfd(0, EFD_CLOEXEC);
    mutable std::mutex mutex_;
    std::vector<std::string> log_;

  protected:
    const Ptr<Tessel::TableReader> reader =
        Tessel::make<Tessel::TableReader>("tables", tables_.tables().memory());
    const TablesAsText now{reader};
};

} // namespace PublishingTesting
