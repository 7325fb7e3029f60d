#include <fmt/format.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "Bundle/Anonymise.h"
#include "Bundle/Bundle.h"
#include "Explain/FrameBuilding.h"
#include "Explain/FrameWords.h"
#include "Input.h"

namespace {

using namespace OvixAgent;

/// What is taken is the same frame in hexadecimal digits; a refusal names the place.
void readWords(const std::string& text) {
    // Others name captures, which may be any file here.
    if (!beginsWithHeader(text)) {
        return;
    }
    const auto frame = readFrame(text, 0, {});
    if (!frame) {
        Fuzz::check(frame.refused().what.starts_with("FRAME"), "a refusal without its place");
        return;
    }
    const auto again = readFrame(hexText(frame.value().bytes), 0, {});
    Fuzz::check(again && again.value().bytes == frame.value().bytes, "digits are another frame");
    std::vector<std::uint8_t> anonymous = frame.value().bytes;
    anonymiseFrame(anonymous, AddressMap({1, 2}, {}));
    Fuzz::check(anonymous.size() == frame.value().bytes.size(), "another length");
}

/// What is taken is written and read again as it was; a refusal names the file.
void readFile(int file, Fuzz::Bytes bytes) {
    const std::string path = fmt::format("/proc/self/fd/{}", file);
    Fuzz::check(ftruncate(file, 0) == 0 && pwrite(file, bytes.data(), bytes.size(), 0) ==
                                               static_cast<ssize_t>(bytes.size()),
                "a file in memory cannot be written");
    const auto bundle = readBundle(path);
    if (!bundle) {
        Fuzz::check(bundle.refused().what.starts_with(path), "a refusal without its file");
        return;
    }
    writeBundle(path, bundle.value());
    const auto again = readBundle(path);
    Fuzz::check(again && again.value().frames.size() == bundle.value().frames.size(),
                "what was written is not what is read");
}

} // namespace

/// The first byte says what the rest is: a bundle if it is 'b', else the words of a frame.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int file = memfd_create("bundle", MFD_CLOEXEC);
    Fuzz::Input input(data, size);
    if (input.byte() == 'b') {
        readFile(file, input.rest());
    } else {
        const Fuzz::Bytes rest = input.rest();
        readWords({rest.begin(), rest.end()});
    }
    return 0;
}
