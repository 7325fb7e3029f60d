// What an independent dissector makes of the answers.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

#include "Answers/IcmpError.h"
#include "Capture/CaptureWriter.h"
#include "EchoTesting.h"

namespace DissectionTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

namespace {

class Dissection : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::system("tshark --version >/dev/null 2>&1") != 0) { // NOLINT(cert-env33-c)
            GTEST_SKIP() << "there is no tshark";
        }
        path_ = std::filesystem::temp_directory_path() /
                ("answers-" + std::to_string(getpid()) + ".pcap");
    }
    void TearDown() override { std::filesystem::remove(path_); }

    void write(const std::vector<Bytes>& packets) const {
        CaptureWriter writer(path_.string(), TimePrecision::microseconds);
        for (const Bytes& packet : packets) {
            ASSERT_FALSE(packet.empty());
            const Bytes frame = join({eth(packet[0] >> 4U == 4 ? ethIpv4 : ethIpv6), packet});
            writer.transmit({0, {}, frame, static_cast<std::uint32_t>(frame.size())});
        }
        writer.close();
    }

    /// What tshark prints, with checksums checked.
    std::string tshark(const std::string& arguments) const {
        const std::string command = "tshark -r " + path_.string() +
                                    " -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE " +
                                    arguments + " 2>/dev/null";
        std::FILE* pipe = popen(command.c_str(), "r"); // NOLINT(cert-env33-c)
        std::string text;
        for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
            text += static_cast<char>(c);
        }
        EXPECT_EQ(pclose(pipe), 0) << command;
        return text;
    }
    std::string fields(const std::string& names, const std::string& options = "") const {
        std::string arguments = options + " -T fields -E separator=/s -E occurrence=a";
        for (std::size_t at = 0; at < names.size();) {
            const std::size_t end = std::min(names.find(' ', at), names.size());
            arguments += " -e " + names.substr(at, end - at);
            at = end + 1;
        }
        return tshark(arguments);
    }
    void expectNoComplaint() const {
        EXPECT_EQ(tshark("-Y '_ws.malformed || _ws.expert.severity == error'"), "");
    }

    std::filesystem::path path_;
};

Bytes timeExceeded(const Bytes& frame) {
    return icmpTimeExceeded(read(frame), own);
}

} // namespace

TEST_F(Dissection, IcmpTimeExceededReadsAsMeant) {
    write({timeExceeded(tagged({{100, 3, 1}, {200, 0, 7}}, ipv4({}, udp()))),
           timeExceeded(labelled({{100, 3, 1}}, ipv4({}, udp(1, 2, counting(1400)))))});
    expectNoComplaint();
    EXPECT_EQ(fields("icmp.type icmp.code icmp.checksum.status icmp.length "
                     "icmp.ext.checksum.status icmp.mpls.label icmp.mpls.ttl",
                     "-o icmp.favor_icmp_mpls:TRUE"),
              "11 0 1 32 1 100,200 1,7\n"
              "11 0 1 32 1 100 1\n");
}

TEST_F(Dissection, IcmpTooBigReadsAsMeant) {
    Ipv4 unfragmented;
    unfragmented.fragment = 0x4000;
    const Bytes big = labelled({{100}, {200}}, ipv4(unfragmented, udp(1, 33434, counting(1472))));
    write({icmpTooBig(read(big), 1500, own)});
    expectNoComplaint();
    EXPECT_EQ(fields("ip.checksum.status icmp.type icmp.code icmp.checksum.status icmp.mtu"),
              "1,1 3 4 1 1492\n");
}

TEST_F(Dissection, Icmpv6AnswersReadAsMeant) {
    const Bytes big = labelled({{100}}, ipv6({}, udp(1, 33434, counting(1452))));
    write({timeExceeded(labelled({{100, 3, 1}}, echo6(message({})))),
           timeExceeded(labelled({{100, 3, 1}}, echo6(message({.tlvs = counting(1400)})))),
           icmpTooBig(read(big), 1500, own)});
    expectNoComplaint();
    EXPECT_EQ(fields("icmpv6.type icmpv6.code icmpv6.checksum.status icmpv6.length "
                     "icmp.ext.checksum.status icmp.mpls.label icmpv6.mtu"),
              "3 0 1 16 1 100 \n"
              "3 0 1 16 1 100 \n"
              "2 0 1    1496\n");
}

TEST_F(Dissection, EchoRepliesReadAsMeant) {
    FakeEchoTables known;
    known.downstreams = {{Lumo::IpGenAddr::fromText("10.0.2.2"), 1492, {Lumo::MplsLabel(300)}}};
    const Bytes mapping = tlv(20, {5, 220, 1, 0, 224, 0, 0, 2, 224, 0, 0, 2, 0, 0, 0, 0});
    const Bytes traced =
        labelled({{100, 0, 1}}, echo4(message({.tlvs = join({fecStack({ldp4}), mapping})})));
    write(
        {replyTo(labelled({{0}}, echo4(message({})))),
         replyTo(labelled({{300}}, echo4(message({.replyMode = 3})))),
         replyTo(labelled({{0}}, echo4(message({.tlvs = join({fecStack({ldp4}), tlv(99, {1})})})))),
         lspEchoReply(read(traced), 0, at, known, own).packet,
         replyTo(labelled({{2}}, echo6(message({.replyMode = 3, .tlvs = fecStack({ldp6})}))))});
    expectNoComplaint();
    EXPECT_EQ(fields("ip.checksum.status udp.checksum.status udp.srcport udp.dstport "
                     "mpls_echo.msg_type mpls_echo.return_code mpls_echo.return_subcode "
                     "mpls_echo.sender_handle mpls_echo.sequence mpls_echo.tlv.type "
                     "mpls_echo.subtlv.label"),
              "1 1 3503 49152 2 3 1 0xdeadbeef 7  \n"
              "1 1 3503 49152 2 11 1 0xdeadbeef 7  \n"
              "1 1 3503 49152 2 2 0 0xdeadbeef 7 9 \n"
              "1 1 3503 49152 2 14 0 0xdeadbeef 7 20 300\n"
              " 1 3503 49152 2 3 1 0xdeadbeef 7  \n");
}

} // namespace DissectionTest
