#include "Config/ConfigDocument.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "ConfigTesting.h"

namespace ConfigDocumentTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using Kind = ConfigDocument::Kind;

TEST(ConfigDocument, KeepsKindsTextsAndLines) {
    const auto document = ConfigDocument::parse("a: [1, ~]\nb:\n  c: x y\n", "t.yaml");
    const auto root = document.root();
    ASSERT_EQ(document.kind(root), Kind::map);
    ASSERT_EQ(document.size(root), 2U);
    EXPECT_EQ(document.text(document.key(root, 0)), "a");
    const auto list = document.value(root, 0);
    ASSERT_EQ(document.kind(list), Kind::list);
    ASSERT_EQ(document.size(list), 2U);
    EXPECT_EQ(document.text(document.item(list, 0)), "1");
    EXPECT_EQ(document.kind(document.item(list, 1)), Kind::null);
    const auto inner = document.value(root, 1);
    EXPECT_EQ(document.text(document.value(inner, 0)), "x y");
    EXPECT_EQ(document.line(document.key(root, 1)), 2U);
    EXPECT_EQ(document.line(document.value(inner, 0)), 3U);
}

TEST(ConfigDocument, AnAliasIsTheAnchoredNode) {
    const auto document = ConfigDocument::parse("a: &x [1]\nb: *x\n", "t.yaml");
    EXPECT_EQ(document.value(document.root(), 0), document.value(document.root(), 1));
}

TEST(ConfigDocument, TextThatIsNotYamlIsRefusedWithItsLine) {
    const std::pair<const char*, const char*> cases[]{
        {"a: 1\nb: [1, 2\nc: 3\n", "t.yaml:3: not valid YAML: "},
        {"a: 1\n  b: 2\n", "t.yaml:2: not valid YAML: "},
        {"a: \"x\n", "t.yaml:1: not valid YAML: "},
        {"a: 1\nb: *nowhere\n", "t.yaml:2: not valid YAML: "},
        {"a: 1\nb: 'x\nc: 1\n\n", "t.yaml:2: not valid YAML: "},
        {"a: }\n", "t.yaml:1: not valid YAML: "},
    };
    for (const auto& [text, error] : cases) {
        EXPECT_EQ(errorOf(text).substr(0, std::string(error).size()), error) << text;
    }
}

TEST(ConfigDocument, ErrorsStayOnOneLine) {
    EXPECT_EQ(errorOf("a: 1\nb: \"\\\x01\"\n").substr(0, 26), "t.yaml:2: not valid YAML: ");
    EXPECT_EQ(errorOf("a: \"\\\x01\"").find('\x01'), std::string::npos);
}

TEST(ConfigDocument, ASecondDocumentIsRefused) {
    EXPECT_EQ(errorOf(twoPorts + "---\nlfib: {}\n"),
              "t.yaml:4: a second YAML document begins here; only one is expected");
    EXPECT_EQ(errorOf("---\n" + twoPorts + "...\n"), "");
}

TEST(ConfigDocument, AnAliasWithinItsOwnAnchorIsRefused) {
    EXPECT_EQ(errorOf("ports: &x\n  - *x\n"),
              "t.yaml:2: an alias is within the node that it names");
}

TEST(ConfigDocument, DeepNestingIsRefusedNotFollowed) {
    for (const char* const opening : {"[", "{a: ", "- ", "? "}) {
        std::string text;
        for (int i = 0; i < 100'000; ++i) {
            text += opening;
        }
        EXPECT_NE(errorOf(text).find("lists and maps are nested more than 100 deep"),
                  std::string::npos)
            << opening;
    }
}

TEST(ConfigDocument, AliasesThatMultiplyAreRefusedBeforeTheyAreFollowed) {
    std::string text = "a0: &a0 [x, x]\n";
    for (int i = 1; i < 60; ++i) {
        const std::string last = std::to_string(i - 1);
        text += "a" + std::to_string(i) + ": &a" + std::to_string(i) + " [*a" + last + ", *a" +
                last + "]\n";
    }
    EXPECT_EQ(errorOf(twoPorts + text), "t.yaml:25: a configuration has at most 16000000 values, "
                                        "those behind an alias counted each time");
}

TEST(ConfigDocument, BytesThatAreNoTextAreRefused) {
    EXPECT_NE(errorOf(std::string("\0\xff\xfe\x01", 4)), "");
    EXPECT_NE(errorOf(std::string(1000, '\0')), "");
}

TEST(ConfigDocument, AListThatManyRoutesShareIsCountedForEach) {
    std::string vias;
    for (int i = 0; i < 100; ++i) {
        vias += "{interface: eth1, nexthop: 10.0.0.1, action: pop},";
    }
    std::string text = twoPorts + "lfib:\n  decap:\n    - {label: 16, vias: &v [" + vias + "]}\n";
    for (int i = 0; i < 60'000; ++i) {
        text += fmt::format("    - {{label: {}, vias: *v}}\n", 17 + i);
    }
    EXPECT_NE(errorOf(text).find("at most 16000000 values"), std::string::npos);
}

TEST(ConfigDocument, DeepNestingIsRefusedNamingTheLimit) {
    const auto nested = [](std::size_t depth) {
        return "a: " + std::string(depth, '[') + std::string(depth, ']') + "\n";
    };
    const std::string limit =
        "t.yaml:1: lists and maps are nested more than 100 deep; a configuration needs fewer";
    EXPECT_EQ(errorOf(nested(ConfigLimit::depth)), limit); // the map counts, too
    EXPECT_EQ(errorOf(nested(100'000)), limit);
    EXPECT_NE(errorOf(nested(ConfigLimit::depth - 1)), limit);
}

TEST(ConfigDocument, VeryLongTextsAndFilesAreRefused) {
    const std::string text(ConfigLimit::textBytes, 'x');
    EXPECT_EQ(errorOf("a: 1\nb: " + text + "x\n"),
              "t.yaml:2: a text of 65537 bytes; it has at most 65536");
    EXPECT_EQ(errorOf("b: " + text + "\n").find("t.yaml:1: a text"), std::string::npos);
    const std::string huge(50'000'000, 'x');
    for (const std::string& each : {"b: " + huge, "b: \"" + huge + "\"", "b: '" + huge + "'",
                                    "b: |\n  " + huge, "b: >\n  " + huge}) {
        EXPECT_EQ(errorOf(each), "t.yaml:1: a text of 50000000 bytes; it has at most 65536");
    }
    EXPECT_EQ(errorOf(twoPorts + "# " + huge + "\n"), "") << "a comment is no value";
    EXPECT_EQ(errorOf(std::string(ConfigLimit::bytes + 1, '\n')),
              "t.yaml: a configuration has at most 104857600 bytes");
}

TEST(ConfigDocument, OneThatNobodyWaitsForIsNotReadToItsEnd) {
    std::stop_source ended;
    const auto read = [&] { ConfigDocument::parse(twoPorts, "t.yaml", ended.get_token()); };
    EXPECT_NO_THROW(read());
    ended.request_stop();
    EXPECT_THROW(read(), ConfigError);
}

} // namespace ConfigDocumentTest
