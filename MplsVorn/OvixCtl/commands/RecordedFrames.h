#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands/AgentAnswer.h"

namespace OvixCtl {

/// How a frame that the agent has recorded reads: when, what became of it and why, its port, label
/// and length, and where it would have left.
std::string recordedText(const Json& frame);

/// Why it is in a capture: what the time and the length beside it do not say.
std::string recordedComment(const Json& frame);

/// Writes frames that the agent has recorded to a capture of the pcapng format, with an interface
/// for each port, and a comment for each frame.
class RecordedCapture {
  public:
    /// "-" is standard output. Throws std::system_error when the file cannot be made.
    explicit RecordedCapture(const std::string& path);

    /// Throws std::system_error when the file cannot be written.
    void add(const Json& frame);
    void flush();

  private:
    using Bytes = std::vector<std::uint8_t>;
    std::uint32_t interfaceOf(const std::string& port);
    void write(std::uint32_t type, const Bytes& body);
    [[noreturn]] void fail() const;

    std::string path_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
    std::vector<std::string> ports_;
};

/// Bytes of hex digits; what is not hex ends them.
std::vector<std::uint8_t> bytesOfHex(const std::string& hex);

} // namespace OvixCtl
