#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "Posix/FileDescriptor.h"
#include "Published/TablePublisher.h"

namespace Mpls {

/// The tables of one writer among several, each of whom locks them for a batch at a time.
class SharedPublisher {
  public:
    /// Tables that have no other writer, which the caller keeps.
    explicit SharedPublisher(TablePublisher& own) noexcept : now_(&own) {}
    /// Shared tables, in which only this process publishes routes of the owner for longer than a
    /// batch. Makes them if there are none. Throws as Tessel::TableMemory does.
    SharedPublisher(std::string name, RouteOwner owner, std::chrono::milliseconds wait);
    SharedPublisher(const SharedPublisher&) = delete;
    SharedPublisher& operator=(const SharedPublisher&) = delete;
    ~SharedPublisher() = default;

    /// What has become of the tables since the last batch.
    enum class Since : std::uint8_t {
        nothing,
        othersWrote,
        replaced ///< the name leads to other tables now: the old ones were removed
    };
    /// Begins a batch: locks the tables, and takes them over as others have left them. Throws
    /// Tessel::TablesBusy when another writer still has them after `wait`, and as opening does.
    Since begin(std::chrono::milliseconds wait);
    /// Ends the batch, which has been committed or discarded.
    void end() noexcept;
    bool hasBegun() const noexcept { return hasBegun_; }
    /// Whether the name still leads to the tables of the last batch.
    bool areNamed() const { return !shared_ || shared_->tables().isNamed(); }

    /// To be read at any time, and written in a batch.
    TablePublisher& tables() noexcept { return *now_; }

  private:
    void takeOver(std::chrono::milliseconds wait);

    std::string name_;
    RouteOwner owner_{};
    Posix::FileDescriptor ownerLock_;
    std::unique_ptr<TablePublisher> shared_; ///< null: of the caller
    TablePublisher* now_ = nullptr;
    bool hasBegun_ = false;
};

} // namespace Mpls
