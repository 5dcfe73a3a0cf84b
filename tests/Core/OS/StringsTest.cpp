// The formatter, the fixed string, and the small text helpers.

#include "Core/OS/QLM_Format.h"
#include "Core/OS/QLM_KeyList.h"
#include "Core/OS/QLM_String.h"
#include "Core/OS/String_Functions.h"

#include <gtest/gtest.h>

namespace {

TEST(Format, WritesEachKindOfVariant) {
    EXPECT_EQ(QLM_FormatText("%d|%5i|%-4d|%05d|%+d", 1, -2, 3, 4, 5), "1|   -2|3   |00004|+5");
    EXPECT_EQ(QLM_FormatText("%u %x %#X %08lx", 7u, 255u, 255u, uint64_t{0x1234567890}), "7 ff 0XFF 1234567890");
    EXPECT_EQ(QLM_FormatText("%lld %d %d", INT64_MIN, true, -5), "-9223372036854775808 1 -5");
    EXPECT_EQ(QLM_FormatText("%.3f %e %g %8.2f", 1.5f, 1000.0, 0.25, -1.0), "1.500 1.000000e+03 0.25    -1.00");
    EXPECT_EQ(QLM_FormatText("%c%c%s%-4s|%.2s", 'a', 98, "cd", std::string("e"), QLM_String("fgh")), "abcde   |fg");
    EXPECT_EQ(QLM_FormatText("100%% %s", "%d"), "100% %d") << "a text is no format";
    EXPECT_EQ(QLM_FormatText("%08Ix", uintptr_t{0xABC}), "00000abc");
    EXPECT_EQ(QLM_FormatText("%f", 1e300).size(), 308u) << "301 digits, the point and six more";
}

TEST(Format, MistakesAreShownAndNeverCrash) {
    EXPECT_EQ(QLM_FormatText("%d %s"), "[FMT_ERROR] [FMT_ERROR]");
    EXPECT_EQ(QLM_FormatText("%d %d %s %f", "text", 2u, 3, 4), "[FMT_ERROR] [FMT_ERROR] [FMT_ERROR] [FMT_ERROR]");
    EXPECT_EQ(QLM_FormatText("%d %d", "wrong", 5), "[FMT_ERROR] 5") << "the wrong one is used up";
    EXPECT_EQ(QLM_FormatText("%n %k %", 1, 2), "[FMT_ERROR] [FMT_ERROR] [FMT_ERROR]");
    EXPECT_EQ(QLM_FormatText("%d", 1, 2), "1");
    EXPECT_EQ(QLM_FormatText(nullptr), "");
    EXPECT_EQ(QLM_FormatText("%999999999999d", 1).size(), 999u);

    const char* null = nullptr;
    EXPECT_EQ(QLM_FormatText("%s", null), "NULL_STRING");
    EXPECT_EQ(QLM_FormatText("%s", reinterpret_cast<const char*>(64)), "ERROR_INVALID_POINTER");
    EXPECT_EQ(QLM_FormatText("%s", std::string(999, 'x')), std::string(999, 'x'));
    EXPECT_EQ(QLM_FormatText("%s", std::string(1000, 'x')), "ERROR_STRING_TOO_LONG");

    FILE* file = std::tmpfile();
    QLM_PrintToFile(file, "%s%d", std::string(5000, 'x'), "no");
    EXPECT_EQ(std::ftell(file), 5009) << "no limit in files, and the plain mark";
    std::fclose(file);
}

TEST(String, CutsWithinItsGuards) {
    QLM_String text(std::string(2000, 'x'));
    EXPECT_EQ(text.Length(), 999u);
    EXPECT_TRUE(text.GuardsIntact());
    const_cast<char*>(text.c_str())[-1] = 99;
    EXPECT_FALSE(text.GuardsIntact());
    const_cast<char*>(text.c_str())[-1] = 10;
    EXPECT_TRUE(text.GuardsIntact());
    const_cast<char*>(text.c_str())[1000] = 99;
    EXPECT_FALSE(text.GuardsIntact());

    std::string letters(998, 'x');
    letters.append("\u00e9"); // its second half would lie beyond
    text.Assign(letters);
    EXPECT_EQ(text.Length(), 998u);
    text.Assign(letters.substr(1));
    EXPECT_EQ(text.Length(), 999u);

    QLM_String copy(text);
    copy = "short";
    copy.Assign(copy.c_str() + 1);
    EXPECT_STREQ(copy.c_str(), "hort");
    EXPECT_TRUE(copy == QLM_String("hort"));
    EXPECT_EQ(QLM_String(static_cast<const char*>(nullptr)).Length(), 0u);
    char buffer[4];
    copy.CopyToBuffer(buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "hor");
    QLM_Format(copy, "%d%%", 50);
    EXPECT_STREQ(copy.c_str(), "50%");
}

TEST(String, ThePoolGrowsAndServesThreads) {
    std::vector<QLM_String> many(250, QLM_String("text")); // beyond the first two hundred blocks
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            const std::string mine(100, static_cast<char>('a' + t));
            for (int i = 0; i < 500; ++i) {
                const QLM_String text(mine);
                EXPECT_TRUE(mine == text.c_str() && text.GuardsIntact());
            }
        });
    for (std::thread& thread : threads) thread.join();
    for (const QLM_String& text : many) EXPECT_TRUE(text == many.front() && text.GuardsIntact());
}

TEST(StringFunctions, SplitTrimAndCompare) {
    std::string key, value;
    QLM_SplitKeyValue("  Name \t The left\teye \r\n", key, value);
    EXPECT_EQ(key + "|" + value, "Name|The left\teye");
    QLM_SplitKeyValue(key, key, value); // the arguments may be one string
    EXPECT_EQ(key + "|" + value, "Name|");
    QLM_SplitKeyValue("", key, value);
    EXPECT_EQ(key + value, "");
    EXPECT_EQ(QLM_Trim(" \t\r\n"), "");
    EXPECT_EQ(QLM_CompareNoCase("Data", "dATA"), 0);
    EXPECT_LT(QLM_CompareNoCase("data", "Data2"), 0);
    EXPECT_GT(QLM_CompareNoCase("b", "AB"), 0);
    EXPECT_GT(QLM_CompareNoCase("\u00e9", "z"), 0) << "bytes, not signed characters";
    EXPECT_EQ(QLM_KeyOfExpression("engine->settings->UndoLimit"), "UndoLimit");
    EXPECT_EQ(QLM_KeyOfExpression("plain"), "plain");
}

TEST(StringFunctions, Base64MatchesThePublishedVectors) {
    const char* vectors[][2] = {{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, coded] : vectors) {
        EXPECT_EQ(QLM_Base64Encode(plain, std::strlen(plain)), coded);
        std::vector<uint8_t> bytes;
        EXPECT_TRUE(QLM_Base64Decode(coded, bytes));
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), plain);
    }
    const uint8_t high[] = {0xFB, 0xFF, 0xFE};
    EXPECT_EQ(QLM_Base64Encode(high, 3), "+//+");
    std::vector<uint8_t> bytes;
    for (const char* bad : {"Zg=a", "Z", "Zm9-", "Zm 9v", "===="}) EXPECT_FALSE(QLM_Base64Decode(bad, bytes)) << bad;
}

TEST(KeyList, CarriesNumbersInAName) {
    QLM_KeyList list("QLM_ID=70012;other = x;broken;");
    EXPECT_EQ(list.GetInt("QLM_ID"), 70012);
    EXPECT_EQ(list.GetInt("none"), 0);
    list.SetInt("QLM_ID", -1);
    list.SetInt("new", 5);
    EXPECT_EQ(list.ToText(), "QLM_ID=-1;other=x;new=5");
    EXPECT_EQ(QLM_KeyList(list.ToText()).GetInt("new"), 5);
}

} // namespace
