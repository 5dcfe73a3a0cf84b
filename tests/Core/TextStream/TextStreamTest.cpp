// The text stream protocol: lines, blocks, items that read and write themselves.

#include "Core/Objects/QLM_BaseClass.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/TextStream/QLM_CustomProperty.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "tests/Core/Raised.h"

#include <gtest/gtest.h>

namespace {

struct Stream {
    explicit Stream(const std::string& text = {}) : file(std::tmpfile()) {
        std::fwrite(text.data(), 1, text.size(), file);
        std::rewind(file);
    }
    ~Stream() { std::fclose(file); }
    std::string Text() const {
        std::rewind(file);
        std::string text;
        for (int c; (c = std::getc(file)) != EOF;) text.push_back(static_cast<char>(c));
        return text;
    }
    std::string Rest() const {
        std::string text;
        for (int c; (c = std::getc(file)) != EOF;) text.push_back(static_cast<char>(c));
        return text;
    }
    FILE* file;
};

std::vector<std::string> Lines(const std::string& text, size_t limit = QLM_TextStreamLineLimit) {
    const Stream stream(text);
    std::vector<std::string> lines;
    for (std::string line; QLM_ReadLine(line, limit, stream.file);) lines.push_back(line);
    return lines;
}

/// Takes "number" and a nested "child"; fails at "broken".
class Item : public virtual QLM_BaseClass {
  public:
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override {
        TextCommand command(key, value);
        if (command.Is("number")) command.ReadInt(number);
        else if (command.Is("broken")) loadFailed = true;
        else if (command.Is("child")) {
            child.Reset(new Item);
            childRead = child->LoadFromStream_Text(stream, 0);
        }
        command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
        return command.Handled();
    }
    int32_t number = 0;
    QLM_Owned<Item> child;
    bool childRead = false;
};

TEST(ReadLine, TakesEveryLineEndAndSplitsLongLines) {
    using Texts = std::vector<std::string>;
    EXPECT_EQ(Lines("a\nb\n\nc"), (Texts{"a", "b", "", "c"}));
    EXPECT_EQ(Lines("a\r\nb\r\n\r\nc\r\n"), (Texts{"a", "b", "", "c"}));
    EXPECT_EQ(Lines("a\n\rb\n\r"), (Texts{"a", "b"}));
    EXPECT_EQ(Lines("a\rb\r\rc"), (Texts{"a", "b", "", "c"}));

    const std::string full(998, 'x');
    EXPECT_EQ(Lines(full + "yz\nq"), (Texts{full, "yz", "q"}));
    EXPECT_EQ(Lines(full + "\nq"), (Texts{full, "", "q"})) << "the line end waits for the next read";

    const Stream stream("abcdef");
    char buffer[4];
    EXPECT_TRUE(QLM_ReadLine(buffer, sizeof buffer, stream.file));
    EXPECT_STREQ(buffer, "abc");
    EXPECT_TRUE(QLM_ReadLine(buffer, sizeof buffer, stream.file));
    EXPECT_FALSE(QLM_ReadLine(buffer, sizeof buffer, stream.file));
    EXPECT_STREQ(buffer, "");
}

TEST(ReadLine, TheDataLineEndsWithItsLineFeedAlone) {
    const Stream stream("DATA_BEGIN\n\rxyz");
    std::string line;
    ASSERT_TRUE(QLM_ReadLine(line, 999, stream.file));
    EXPECT_EQ(stream.Rest(), "\rxyz");
}

TEST(TextCommand, TheFirstMatchClaimsTheLine) {
    TextCommand command("Strength", "0.5");
    EXPECT_FALSE(command.Is("Stren"));
    EXPECT_TRUE(command.Is("STRENGTH"));
    EXPECT_FALSE(command.Is("Strength"));
    TextCommand other("x", "");
    other.Merge(false);
    EXPECT_FALSE(other.Handled());
    other.Merge(true);
    EXPECT_FALSE(other.Is("x"));
}

TEST(TextCommand, ReadsValuesAsTheirKind) {
    int32_t number = 1;
    TextCommand("", "-12 px").ReadInt(number);
    EXPECT_EQ(number, -12);
    uint32_t positive = 1;
    TextCommand("", "-12").ReadUnsigned(positive);
    EXPECT_EQ(positive, 0u);
    bool on = false;
    TextCommand("", "-3").ReadBool(on);
    EXPECT_TRUE(on);
    float real = 0;
    TextCommand("", "-2.5e1").ReadFloat(real);
    EXPECT_EQ(real, -25.0f);

    float vector[3] = {1, 2, 3}, matrix[16] = {9};
    TextCommand("", "4 5").ReadVector3(vector);
    EXPECT_EQ(vector[0], 1) << "two numbers are no vector";
    TextCommand("", "4 5 -6.5").ReadVector3(vector);
    EXPECT_EQ(vector[2], -6.5f);
    TextCommand("", "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15").ReadMatrix(matrix);
    EXPECT_EQ(matrix[0], 9);

    // What the writer writes on one line the reader takes back.
    for (int i = 0; i < 16; ++i) matrix[i] = static_cast<float>(i) - 7.25f;
    Stream stream;
    QLM_WriteMatrix(stream.file, "m", matrix);
    QLM_WriteVector3(stream.file, "v", vector);
    std::rewind(stream.file);
    std::string line, key, value;
    QLM_ReadLine(line, 999, stream.file);
    QLM_SplitKeyValue(line, key, value);
    float back[16] = {};
    TextCommand(key, value).ReadMatrix(back);
    EXPECT_TRUE(std::equal(back, back + 16, matrix));
    QLM_ReadLine(line, 999, stream.file);
    EXPECT_EQ(line, "v\t4.00000000 5.00000000 -6.50000000");
}

TEST(TextBlock, IndentsUntilItEnds) {
    Stream stream;
    {
        const TStartTextFileBlock outer("object", "Cube", stream.file);
        const TStartTextFileBlock skipped("x", "y", stream.file, false);
        const TStartTextFileBlock inner("mesh", "", stream.file);
        QLM_WriteText(stream.file, "note", "two\nlines\r.");
        EXPECT_EQ(QLM_TextDepth(), 2);
    }
    EXPECT_EQ(stream.Text(), "object\tCube\n{\n\tmesh\t\n\t{\n\t\tnote\ttwo lines .\n\t}\n}\n");
    EXPECT_EQ(QLM_TextDepth(), 0);
}

TEST(ItemStream, WritesItsLinesInOrder) {
    Item item;
    item.SetName("Left/Eye");
    item.SetReadOnly(true);
    item.SetCurrentFlag(true);
    item.SetInt("b", 7, QLM_CustomPropertyContainer::Saved);
    item.SetFloat("a", 0.1f, QLM_CustomPropertyContainer::Saved);
    item.SetInt("unsaved", 8);
    Stream stream;
    EXPECT_TRUE(item.SaveToStream_Text(stream.file));
    EXPECT_EQ(stream.Text(), "Name\tLeft_Eye\nReadOnly\t1\nCollapsed\t1\nID\t" + std::to_string(item.GetID()) +
              "\nCurrent\t1\nproperty\ta\n{\n\tpropertyType\tfloat\n\tvalue\t0.10000000\n}\n"
              "property\tb\n{\n\tpropertyType\tint\n\tvalue\t7\n}\n");

    item.SetBool("excludeFromSaving", true);
    Stream empty;
    EXPECT_FALSE(item.SaveToStream_Text(empty.file));
    EXPECT_EQ(empty.Text(), "");
    item.SetBool("excludeFromSaving", false);
    item.SetPointer("p", &item, QLM_CustomPropertyContainer::Saved);
    EXPECT_EQ(Raised([&] { item.SaveToStream_Text(empty.file); }), "Property type cannot be saved in files");
    EXPECT_EQ(QLM_TextDepth(), 0);
}

TEST(ItemStream, PropertiesSurviveTheRoundTrip) {
    Item item;
    item.SetCollapsed(false);
    item.SetCurrentFlag(true);
    constexpr uint32_t Saved = QLM_CustomPropertyContainer::Saved;
    item.SetBool("hair/isStrand", true, Saved);
    item.SetInt("count", -5, Saved);
    item.SetFloat("Strength", -0.25f, Saved);
    item.SetString("export/CR2/subPath", "Runtime:Geo\\x 50%", Saved);
    constexpr int Count = 20000;
    float* values = static_cast<float*>(QLM_Malloc(Count * sizeof(float), false));
    for (int i = 0; i < Count; ++i) values[i] = static_cast<float>(i * i) * 0.125f;
    item.SetFloatArray("weights", values, Count, Saved);
    item.SetFloatArray("none", nullptr, 0, Saved);
    item.SetName("Strand");

    Stream stream;
    {
        const TStartTextFileBlock block("object", "", stream.file);
        item.SaveToStream_Text(stream.file);
    }
    std::rewind(stream.file);
    Item read;
    read.SetInt("count", 99);
    EXPECT_TRUE(read.LoadFromStream_Text(stream.file, 1));
    EXPECT_EQ(std::ftell(stream.file), 0) << "put back on request";
    EXPECT_STREQ(read.GetName(), "Strand");
    EXPECT_TRUE(!read.IsCollapsed() && read.IsCurrent());
    EXPECT_NE(read.GetID(), item.GetID());
    EXPECT_TRUE(read.GetBool("hair/isStrand"));
    EXPECT_EQ(read.GetInt("count"), -5) << "what stood there is replaced";
    EXPECT_EQ(read.GetFloat("Strength"), -0.25f);
    EXPECT_EQ(read.GetString("export/CR2/subPath"), "Runtime:Geo\\x 50%");
    int32_t count = 0;
    const float* back = read.GetFloatArray("weights", count);
    ASSERT_EQ(count, Count);
    EXPECT_EQ(back[19999], 19999.0f * 19999.0f * 0.125f);
    EXPECT_EQ(back[3], 1.125f);
    EXPECT_EQ(read.GetFloatArray("none", count), nullptr);
    EXPECT_TRUE(read.HasProperty("none") && count == 0);

    Stream again; // what was read is saved again
    read.SaveToStream_Text(again.file);
    EXPECT_NE(again.Text().find("property\tweights"), std::string::npos);
}

TEST(ItemStream, UnclaimedBlocksAreSkippedWithWhatTheyHold) {
    // The data hold braces and line ends; the last two blocks have raw data and a size that can't be true.
    const std::string data = "\r\n}\n}\n{\n";
    const std::string packed = "DATA_BEGIN\n" + data + "\nDATA_END\n";
    const Stream stream("ignored\n{\n number 1\nstrange\tx\n{\nnumber 2\ninner\n{\nrawDataSize 999\ncompressedDataSize " +
                        std::to_string(data.size()) + "\n" + packed + "}\n}\nraw\n{\nrawDataSize " +
                        std::to_string(data.size()) + "\n" + packed +
                        "}\nbad\n{\nrawDataSize 99999999999999\nDATA_BEGIN\nabc\nDATA_END\n}\nNUMBER 5\n}\nbehind");
    Item item;
    EXPECT_TRUE(item.LoadFromStream_Text(stream.file, 0));
    EXPECT_EQ(item.number, 5);
    EXPECT_EQ(stream.Rest(), "behind");
}

TEST(ItemStream, AFailedRecordEndsAtItsOwnBrace) {
    const Stream stream("{\nchild\n{\nnumber 1\nbroken\nnumber 2\nx\n{\n}\n}\nnumber 3\n}\n");
    Item item;
    EXPECT_TRUE(item.LoadFromStream_Text(stream.file, 0));
    EXPECT_FALSE(item.childRead);
    EXPECT_EQ(item.child->number, 1);
    EXPECT_EQ(item.number, 3);
}

TEST(ItemStream, TruncationKeepsWhatWasRead) {
    const std::string text = "{\nName\tA\nproperty\tn\n{\npropertyType\tint\nvalue\t4\n}\nstrange\n{\nx\n}\nnumber\t6\n}\n";
    for (size_t length = 0; length <= text.size(); ++length) {
        const Stream stream(text.substr(0, length));
        Item item;
        EXPECT_TRUE(item.LoadFromStream_Text(stream.file, 0)) << length;
        EXPECT_EQ(item.number, length >= text.find("number\t6") + 8 ? 6 : 0) << length;
    }
}

TEST(CustomProperty, AValueBeforeItsTypeIsLost) {
    const Stream stream("{\nproperty\tn\n{\nvalue\t4\npropertyType\tint\n}\nproperty\tw\n{\npropertyType\tfloat_array\n"
                        "data\t\n{\nrawDataSize 12\ncompressedDataSize 500\nDATA_BEGIN\nshort\nDATA_END\n}\n}\nnumber 2\n}\n");
    Item item;
    EXPECT_TRUE(item.LoadFromStream_Text(stream.file, 0));
    EXPECT_EQ(item.GetInt("n"), 0);
    int32_t count = 1;
    EXPECT_EQ(item.GetFloatArray("w", count), nullptr) << "a damaged array is empty";
    EXPECT_EQ(item.number, 2) << "and the item around it is read on";
    EXPECT_STREQ(QLM_PropertyTypeName(5), "float_array");
    EXPECT_STREQ(QLM_PropertyTypeName(0), "UNKNOWN");
    EXPECT_STREQ(QLM_PropertyTypeName(7), "UNKNOWN");
    EXPECT_EQ(QLM_PropertyTypeFromName("string"), 6);
    EXPECT_EQ(QLM_PropertyTypeFromName("String"), 0);
}

TEST(CustomProperty, FlagsAndCopies) {
    Item item;
    item.SetInt("a", 1, 2);
    item.SetInt("a", 2, 4);
    item.SetInt("b", 3, 4);
    item.SetInt("b", 4, 1); // flags back to none
    item.SetString("", "x");
    EXPECT_FALSE(item.HasProperty(""));
    float* values = static_cast<float*>(QLM_Malloc(4, false));
    values[0] = 8;
    item.SetFloatArray("c", values, 1, 2);

    Item copy;
    copy.SetInt("gone", 1);
    copy.CopyPropertiesFrom(item);
    copy.CopyPropertiesFrom(copy);
    int32_t count = 0;
    float* copied = copy.GetFloatArray("c", count);
    ASSERT_TRUE(copied && copied != values);
    EXPECT_EQ(copied[0], 8);
    EXPECT_FALSE(copy.HasProperty("gone"));

    item.RemovePropertiesWithFlag(4 | 8);
    EXPECT_FALSE(item.HasProperty("a"));
    EXPECT_EQ(item.GetInt("b"), 4);
    item.RemoveProperty("b");
    item.RemoveProperty("b");
    EXPECT_EQ(item.GetInt("b"), 0);
    EXPECT_EQ(copy.GetInt("a"), 2);
}

} // namespace
