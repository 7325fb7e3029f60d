#pragma once

#include <memory>
#include <vector>

namespace OvixFpm {

/// What a listener serves beside zebra, between its batches.
class Companion {
  public:
    Companion() = default;
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;
    virtual ~Companion() = default;

    /// To be polled for input; -1: nothing is.
    virtual int descriptor() const noexcept = 0;
    /// After how many milliseconds serve() is to be called at the latest.
    virtual int timeoutMs() const = 0;
    /// Does what is due. Does not block. Nothing of the tables is uncommitted before and after.
    virtual void serve() = 0;
};

using Companions = std::vector<std::unique_ptr<Companion>>;

} // namespace OvixFpm
