#include "Capture/CaptureMerge.h"
#include "Capture/CaptureWriter.h"
#include "CaptureTesting.h"
#include "HeapCount.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;

using CaptureAllocationTest = CaptureTest;

TEST_F(CaptureAllocationTest, FramesPassWithoutOne) {
    std::string records = pcapHeader(microsecondMagic);
    for (std::uint32_t i = 0; i < 2000; ++i) {
        records += pcapRecord(i, 0, std::string(60 + i % 1400, 'x'));
    }
    std::vector<CaptureReader> readers;
    readers.emplace_back(0, file("a.pcap", records));
    readers.emplace_back(1, file("b.pcap", records));
    CaptureMerge merge(std::move(readers));
    CaptureWriter writer(path("out.pcap"), TimePrecision::microseconds);
    const std::uint64_t before = TestSupport::heapAllocations;
    while (const Frame* const frame = merge.next()) {
        writer.transmit(*frame);
    }
    EXPECT_EQ(TestSupport::heapAllocations, before);
    EXPECT_EQ(writer.frames(), 4000U);
}
