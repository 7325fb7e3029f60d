#include "Explain/RemedyWords.h"

#include <gtest/gtest.h>

namespace RemedyWordsTest {

using OvixAgent::shellWord;
using OvixAgent::yamlWord;

TEST(RemedyWords, WhateverANameIsMadeOfIsOneWordOfTheShell) {
    EXPECT_EQ(shellWord("east.100"), "east.100");
    EXPECT_EQ(shellWord("/etc/ovix/a_b-c+d.yaml"), "/etc/ovix/a_b-c+d.yaml");
    EXPECT_EQ(shellWord(""), "''");
    EXPECT_EQ(shellWord("-rf"), "'-rf'");
    EXPECT_EQ(shellWord("r$(touch${IFS}x)"), "'r$(touch${IFS}x)'");
    EXPECT_EQ(shellWord("a b;c&d|e`f`\n"), "'a b;c&d|e`f`\n'");
    EXPECT_EQ(shellWord("it's"), "'it'\\''s'");
}

TEST(RemedyWords, WhateverANameIsMadeOfIsOneScalarOfYaml) {
    EXPECT_EQ(yamlWord("east.100"), "east.100");
    for (const char* const meaning :
         {"no", "on", "null", "true", "y", "1", "0x10", "-a", ".5", ""}) {
        EXPECT_EQ(yamlWord(meaning), std::string("\"") + meaning + "\"");
    }
    EXPECT_EQ(yamlWord("a: {b"), "\"a: {b\"");
    EXPECT_EQ(yamlWord("say \"no\" \\"), R"("say \"no\" \\")");
    EXPECT_EQ(yamlWord("a\nb\x7f"), R"("a\x0ab\x7f")");
}

} // namespace RemedyWordsTest
