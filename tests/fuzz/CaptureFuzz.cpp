#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "Capture/CaptureInterfaces.h"
#include "Capture/CaptureMerge.h"
#include "Capture/CaptureWriter.h"
#include "Input.h"

namespace {

using namespace OvixAgent;

/// A file in memory, with a path.
class MemoryFile {
  public:
    explicit MemoryFile(const char* name) : file_(memfd_create(name, MFD_CLOEXEC)) {
        Fuzz::check(file_ >= 0, "no file in memory");
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(file_); }

    void contentIs(Fuzz::Bytes bytes) const {
        Fuzz::check(ftruncate(file_, 0) == 0 && pwrite(file_, bytes.data(), bytes.size(), 0) ==
                                                    static_cast<ssize_t>(bytes.size()),
                    "a file in memory cannot be written");
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

  private:
    int file_;
};

struct ReadFrame {
    std::vector<std::uint8_t> bytes;
    std::uint32_t originalLength;
    std::uint32_t seconds; ///< as many as a capture has room for
    std::uint32_t nanoseconds;

    friend bool operator==(const ReadFrame&, const ReadFrame&) = default;
};

/// What a merge has; at most so many frames, since a pcapng block may stand for many.
std::vector<ReadFrame> readAll(CaptureMerge& merge) {
    constexpr std::size_t most = 4096;
    std::vector<ReadFrame> all;
    const Frame* frame = nullptr;
    while (all.size() < most && (frame = merge.next()) != nullptr) {
        Fuzz::check(frame->bytes.size() <= longestCapturedFrame, "a frame is too long");
        Fuzz::check(frame->originalLength >= frame->bytes.size(), "an original length");
        Fuzz::check(frame->time.nanoseconds < 1'000'000'000, "a time");
        all.push_back({{frame->bytes.begin(), frame->bytes.end()},
                       frame->originalLength,
                       static_cast<std::uint32_t>(frame->time.seconds),
                       frame->time.nanoseconds});
    }
    return all;
}

void readNames(const MemoryFile& file) {
    CaptureInterfaces interfaces(file.path());
    while (const auto name = interfaces.next()) {
        Fuzz::check(name->size() <= 65535 && name->find('\0') == std::string::npos, "a name");
    }
}

/// What is written is read again.
void checkWritten(const std::vector<ReadFrame>& frames, const MemoryFile& file) {
    CaptureWriter writer(file.path(), TimePrecision::nanoseconds);
    for (const ReadFrame& frame : frames) {
        writer.transmit({0, {frame.seconds, frame.nanoseconds}, frame.bytes, frame.originalLength});
    }
    writer.close();
    std::vector<CaptureReader> readers;
    readers.emplace_back(0, file.path());
    CaptureMerge again(std::move(readers));
    Fuzz::check(readAll(again) == frames && again.problems().empty(),
                "what was written is not what is read");
}

} // namespace

/// One capture, or two whose frames are merged. The first byte says where the second one starts,
/// in parts of the whole; 0 means that there is one.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile files[] = {MemoryFile("one"), MemoryFile("two"), MemoryFile("out")};
    Fuzz::Input input(data, size);
    const std::size_t part = input.byte();
    const std::size_t first = part == 0 ? size : size * part / 256;
    files[0].contentIs(input.bytes(first));
    files[1].contentIs(input.rest());
    readNames(files[0]);
    try {
        std::vector<CaptureReader> readers;
        readers.emplace_back(0, files[0].path());
        if (part != 0) {
            readers.emplace_back(1, files[1].path());
        }
        CaptureMerge merge(std::move(readers));
        checkWritten(readAll(merge), files[2]);
    } catch (const CaptureError& refused) {
        Fuzz::check(std::string_view(refused.what()).starts_with("/proc/self/fd/"),
                    "a refusal without the file's name", refused.what());
    }
    return 0;
}
