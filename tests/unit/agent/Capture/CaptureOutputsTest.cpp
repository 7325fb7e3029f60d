#include "Capture/CaptureOutputs.h"

#include "Capture/CaptureReader.h"
#include "CaptureTesting.h"

namespace CaptureOutputsTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

const std::vector<std::string> names{"eth1", "eth2", "cpu", "lo"};

AgentConfig twoPorts() {
    AgentConfig config;
    config.ports.resize(2);
    config.ports[0].name = "eth1";
    config.ports[1].name = "eth2";
    return config;
}

} // namespace

class CaptureOutputsTest : public CaptureTest {
  protected:
    /// What opening `out` fails with, given the inputs.
    static std::string errorOf(const std::string& out, const std::vector<std::string>& inputs) {
        return captureError(
            [&] { CaptureOutputs(out, inputs, twoPorts(), TimePrecision::microseconds).close(); });
    }
};

TEST_F(CaptureOutputsTest, CreatesEachCaptureAndTheParentDirectories) {
    const std::string out = path("a/b/c");
    CaptureOutputs captures(out, {}, twoPorts(), TimePrecision::microseconds);
    const std::string bytes = "frame";
    captures.port(1).transmit(
        {0, {1, 0}, {reinterpret_cast<const std::uint8_t*>(bytes.data()), 5}, 5});
    captures.close();
    for (const std::string& name : names) {
        CaptureReader reader(0, out + "/" + name + ".pcap");
        EXPECT_EQ(reader.next() != nullptr, name == "eth2") << name;
    }
}

TEST_F(CaptureOutputsTest, NamesADirectoryThatCannotBeCreated) {
    file("taken", "a file");
    EXPECT_EQ(errorOf(path("taken"), {}), path("taken") + ": cannot be created: Not a directory");
    EXPECT_EQ(errorOf(path("taken/out"), {}),
              path("taken/out") + ": cannot be created: Not a directory");
}

TEST_F(CaptureOutputsTest, NoInputIsOverwrittenWhateverItsPath) {
    const std::string content = pcapHeader(microsecondMagic) + pcapRecord(1, 0, "precious");
    const std::string out = path("out");
    std::filesystem::create_directories(out);
    file("out/eth2.pcap", content);
    std::filesystem::create_symlink(path("out/eth2.pcap"), path("symbolic.pcap"));
    std::filesystem::create_hard_link(path("out/eth2.pcap"), path("hard.pcap"));
    for (const std::string& input : {path("out/eth2.pcap"), path("symbolic.pcap"),
                                     path("hard.pcap"), path("out/../out/./eth2.pcap")}) {
        EXPECT_EQ(errorOf(out, {file("other.pcap", ""), input}),
                  input + ": would be overwritten by the output " + out + "/eth2.pcap");
        EXPECT_EQ(contentOf(path("out/eth2.pcap")), content);
        EXPECT_FALSE(std::filesystem::exists(path("out/eth1.pcap")));
    }
}

TEST_F(CaptureOutputsTest, OverwritesEarlierOutputsAndLeavesOtherFilesAlone) {
    const std::string out = path("out");
    EXPECT_EQ(errorOf(out, {}), "");
    const std::string input = file("out/input.pcap", pcapHeader(microsecondMagic));
    EXPECT_EQ(errorOf(out, {input}), "");
    EXPECT_EQ(contentOf(input), pcapHeader(microsecondMagic));
}

TEST_F(CaptureOutputsTest, CloseReportsTheFirstErrorAndWritesTheOthers) {
    const std::string out = path("out");
    std::filesystem::create_directories(out);
    std::filesystem::create_symlink("/dev/full", path("out/eth1.pcap"));
    EXPECT_EQ(errorOf(out, {}), out + "/eth1.pcap: cannot be written: No space left on device");
    EXPECT_EQ(CaptureReader(0, out + "/cpu.pcap").problem(), "");
}

} // namespace CaptureOutputsTest
