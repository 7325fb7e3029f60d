#include <vector>

#include "Input.h"
#include "Live/ports/WireFrames.h"
#include "Wire/Checksum.h"
#include "Wire/Ethernet.h"

namespace {

using namespace OvixAgent;

constexpr std::size_t headroom = frameHeadroom + Wire::Tag::size;

/// A frame as it could come out of a ring: its end may be missing, its tag beside it.
RingFrame ringFrame(Fuzz::Input& input, std::span<std::uint8_t> bytes,
                    const OffloadedWork& offloaded) {
    const std::uint8_t how = input.byte();
    const std::uint16_t missing = input.number<std::uint16_t>();
    RingFrame frame;
    frame.bytes = bytes;
    frame.headroom = headroom;
    frame.length = static_cast<std::uint32_t>(bytes.size() + ((how & 1U) != 0 ? missing : 0U));
    frame.offloaded = offloaded;
    if ((how & 2U) != 0) {
        frame.removedTag =
            Wire::Tag{Lumo::NetU16(0x8100), Lumo::NetU16(input.number<std::uint16_t>())};
    }
    return frame;
}

/// Each segment in memory of its own size; what they carry is what the whole frame carried.
void cutAll(FrameSegments& segments, Fuzz::Bytes whole, const OffloadedWork& work) {
    const auto layout = readSegmentedFrame(whole, work);
    Fuzz::check(layout.has_value(), "a frame without a layout is cut");
    std::vector<std::uint8_t> carried;
    while (const std::size_t size = segments.nextSize()) {
        const auto memory = std::make_unique<std::uint8_t[]>(size);
        const WritableFrame segment = segments.next(memory.get());
        Fuzz::check(segment.size == size && segment.originalLength == size, "a segment's size");
        Fuzz::check(size <= layout->payload + layout->segmentSize, "a segment is too long");
        if (layout->isIpv4) {
            const Fuzz::Bytes header(memory.get() + layout->network,
                                     layout->transport - layout->network);
            Fuzz::check(Wire::onesSum(header) == 0xffff, "the checksum of a segment's IP header");
        }
        carried.insert(carried.end(), memory.get() + layout->payload, memory.get() + size);
    }
    const Fuzz::Bytes payload = whole.subspan(layout->payload, layout->end - layout->payload);
    Fuzz::check(std::equal(carried.begin(), carried.end(), payload.begin(), payload.end()),
                "what the segments carry is not what the frame carried");
}

} // namespace

/// A frame that the kernel or its sender has merged, with what is left to be done to it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::Input input(data, size);
    const auto work = input.number<OffloadedWork>();
    Fuzz::Input how(input.bytes(5).data(), size > sizeof work + 5 ? 5 : 0);
    const Fuzz::ExactCopy copy(input.rest(), headroom);
    const RingFrame frame = ringFrame(how, copy.bytes(), work);
    LiveCounts counts;
    if (work.segmentation == 0) {
        const WritableFrame made = toWireFrame(frame, counts);
        Fuzz::check(made.bytes + made.size == copy.bytes().data() + copy.bytes().size(),
                    "a wire frame ends where the frame ended");
        Fuzz::check(made.headroom + Wire::Tag::size >= headroom, "the headroom is lost");
        return 0;
    }
    const std::size_t grown =
        frame.removedTag && frame.bytes.size() >= Wire::Ethernet::macsSize ? Wire::Tag::size : 0;
    FrameSegments segments;
    toWireFrames(frame, segments, counts);
    const bool isCut = segments.nextSize() > 0;
    const bool isCounted = counts.of(LiveEvent::truncated) + counts.of(LiveEvent::unsegmented) == 1;
    Fuzz::check(isCut != isCounted, "a merged frame is neither cut nor counted, or both");
    if (isCut) {
        OffloadedWork moved = work;
        moved.checksumStart = static_cast<std::uint16_t>(moved.checksumStart + grown);
        cutAll(segments, {copy.bytes().data() - grown, copy.bytes().size() + grown}, moved);
    }
    return 0;
}
