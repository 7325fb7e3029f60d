#include "Capture/CaptureDirectory.h"

#include "Capture/CaptureReader.h"
#include "CaptureTesting.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

const std::vector<std::string> names{"eth1", "eth2", "cpu"};

} // namespace

class CaptureDirectoryTest : public CaptureTest {
  protected:
    /// What opening `out` fails with, given the inputs.
    static std::string errorOf(const std::string& out, const std::vector<std::string>& inputs) {
        return captureError(
            [&] { CaptureDirectory(out, names, inputs, TimePrecision::microseconds).close(); });
    }
};

TEST_F(CaptureDirectoryTest, CreatesACaptureForEachNameBelowNewParents) {
    const std::string out = path("a/b/c");
    CaptureDirectory captures(out, names, {}, TimePrecision::microseconds);
    const std::string bytes = "frame";
    captures.write(1, {0, {1, 0}, {reinterpret_cast<const std::uint8_t*>(bytes.data()), 5}, 5});
    captures.close();
    EXPECT_EQ(captures.writer(1).path(), out + "/eth2.pcap");
    for (const std::string& name : names) {
        CaptureReader reader(0, out + "/" + name + ".pcap");
        EXPECT_EQ(reader.next() != nullptr, name == "eth2") << name;
    }
}

TEST_F(CaptureDirectoryTest, ADirectoryThatCannotBeCreatedIsNamed) {
    file("taken", "a file");
    EXPECT_EQ(errorOf(path("taken"), {}), path("taken") + ": cannot be created: Not a directory");
    EXPECT_EQ(errorOf(path("taken/out"), {}),
              path("taken/out") + ": cannot be created: Not a directory");
}

TEST_F(CaptureDirectoryTest, AnInputIsNeverOverwrittenByWhateverNameItGoes) {
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

TEST_F(CaptureDirectoryTest, EarlierOutputsAndOtherInputsInTheDirectoryAreNoHindrance) {
    const std::string out = path("out");
    EXPECT_EQ(errorOf(out, {}), "");
    const std::string input = file("out/input.pcap", pcapHeader(microsecondMagic));
    EXPECT_EQ(errorOf(out, {input}), "");
    EXPECT_EQ(contentOf(input), pcapHeader(microsecondMagic));
}

TEST_F(CaptureDirectoryTest, ClosingReportsTheFirstFailureAndStillWritesTheOthers) {
    const std::string out = path("out");
    std::filesystem::create_directories(out);
    std::filesystem::create_symlink("/dev/full", path("out/eth1.pcap"));
    EXPECT_EQ(errorOf(out, {}), out + "/eth1.pcap: cannot be written: No space left on device");
    EXPECT_EQ(CaptureReader(0, out + "/cpu.pcap").problem(), "");
}
