#include "Program/Version.h"

#include <gtest/gtest.h>
#include <regex>

namespace VersionTest {

TEST(Version, SaysWhatIsBuiltOfWhat) {
    const std::regex form(R"(a-program \d+\.\d+\.\d+
commit:    (unknown|[0-9a-f]{12}(\+changes)?)
compiler:  \w+ [\d.]+( -[Og]\S*)+
options:   AF_XDP.*
libraries: libpcap [\d.]+(, [\w.+-]+ [\d.]+)+)");
    EXPECT_TRUE(std::regex_match(OvixLog::versionText("a-program"), form))
        << OvixLog::versionText("a-program");
}

} // namespace VersionTest
