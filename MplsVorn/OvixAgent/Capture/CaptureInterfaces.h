#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace OvixAgent {

/// The names of the interfaces that the frames of a capture came in at, which pcapng files may have
/// and the library that reads the frames does not give.
class CaptureInterfaces {
  public:
    /// A file that cannot be read, or is no pcapng capture, has no names.
    explicit CaptureInterfaces(const std::string& path);

    /// Of the next frame, in the order in which CaptureReader has them; empty when the capture does
    /// not say it, and unset when there is no further frame.
    std::optional<std::string> next();

  private:
    struct Block {
        std::uint32_t type;
        std::vector<std::uint8_t> body;
    };

    std::optional<Block> nextBlock();
    bool beginSection(std::vector<std::uint8_t>& start);
    std::string nameIn(const std::vector<std::uint8_t>& body) const;
    std::string nameOf(std::uint32_t interface) const;
    template <typename Number>
    Number numberAt(const std::vector<std::uint8_t>& bytes, std::size_t offset) const noexcept;

    std::ifstream file_;
    bool isSwapped_ = false;
    std::vector<std::string> names_; ///< of the section's interfaces
};

/// The name of the interface of a frame, counted from 1; empty when the capture does not say it.
std::string captureInterfaceOf(const std::string& path, std::uint64_t number);

} // namespace OvixAgent
