#include "Script/QLM_ScriptWords.h"

#include <gtest/gtest.h>

namespace {

TEST(ScriptWords, SplitsQuotesEscapesAndComments) {
    QLM_ScriptWords words;
    std::string error;
    ASSERT_TRUE(QLM_SplitScriptLine("  import\t\"my \\\"odd\\\" \\\\ file.obj\"  a#b # a comment \"", words, error));
    EXPECT_EQ(words, (QLM_ScriptWords{"import", "my \"odd\" \\ file.obj", "a#b"}));
    ASSERT_TRUE(QLM_SplitScriptLine("set \"Stroke Smoothing\" \"\"", words, error));
    EXPECT_EQ(words, (QLM_ScriptWords{"set", "Stroke Smoothing", ""}));
    ASSERT_TRUE(QLM_SplitScriptLine("# nothing", words, error));
    EXPECT_TRUE(words.empty());
    EXPECT_FALSE(QLM_SplitScriptLine("import \"open", words, error));
    EXPECT_FALSE(QLM_SplitScriptLine("import \"bad \\n\"", words, error));
}

TEST(ScriptWords, NumbersAreWholeWords) {
    double number = 0;
    EXPECT_TRUE(QLM_ParseNumber("-1.5e2", number));
    EXPECT_EQ(number, -150);
    for (const char* bad : {"", "1x", " 1", "nan", "inf", "1,5"}) EXPECT_FALSE(QLM_ParseNumber(bad, number)) << bad;
    long long whole = 0;
    EXPECT_TRUE(QLM_ParseInteger("32", 1, 32, whole));
    for (const char* bad : {"0", "33", "1.0", "", "99999999999999999999"})
        EXPECT_FALSE(QLM_ParseInteger(bad, 1, 32, whole)) << bad;
    std::string name;
    int occurrence = 0;
    QLM_SplitOccurrence("arm#2", name, occurrence);
    EXPECT_EQ(name + "/" + std::to_string(occurrence), "arm/2");
    QLM_SplitOccurrence("no#1#x", name, occurrence);
    EXPECT_EQ(name + "/" + std::to_string(occurrence), "no#1#x/1");
}

} // namespace
