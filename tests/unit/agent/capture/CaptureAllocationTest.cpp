#include <cstdlib>
#include <new>

#include "CaptureMerge.h"
#include "CaptureTesting.h"
#include "CaptureWriter.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

std::size_t allocations = 0;

} // namespace

void* operator new(std::size_t size) {
    ++allocations;
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

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
    const std::size_t before = allocations;
    while (const Frame* const frame = merge.next()) {
        writer.write(*frame);
    }
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(writer.frames(), 4000U);
}
