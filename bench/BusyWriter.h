#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

#include "Published/TablePublisher.h"

namespace Bench {

/// Another process that publishes tables under a name: fills them, and then, if it is busy, goes on
/// changing them, a batch at a time, until this object goes, and the tables with it.
class BusyWriter {
  public:
    using Fill = std::function<void(Mpls::TablePublisher&)>;
    /// Makes the changes of the batch of that number.
    using Change = std::function<void(Mpls::TablePublisher&, std::uint32_t batch)>;

    /// Returns once the tables are filled.
    BusyWriter(std::string name, const Fill& fill, const Change& change = {});
    ~BusyWriter();
    BusyWriter(const BusyWriter&) = delete;
    BusyWriter& operator=(const BusyWriter&) = delete;

    Ptr<Tessel::TableReader> reader() const;

  private:
    std::string name_;
    pid_t process_;
};

/// A name for tables that no other process uses.
std::string benchTables(const std::string& what);

} // namespace Bench
