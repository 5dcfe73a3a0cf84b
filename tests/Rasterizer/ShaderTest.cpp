#include "Math/QLM_MathTables.h"
#include "Rasterizer/QLM_BlendFormulas.h"
#include "Rasterizer/QLM_RasterizeOptions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <vector>

namespace {

class Shader : public testing::Test {
  protected:
    static void SetUpTestSuite() { QLM_InitializeMathLookupTables(); }
    static void TearDownTestSuite() { QLM_FreeMathLookupTables(); }
};

using Pixel = std::array<uint8_t, 3>;

/// The numbers of a line behind its first word; none for a comment or a headline.
std::vector<int> NumbersOf(std::string line, std::string& firstWord) {
    std::replace(line.begin(), line.end(), ',', ' ');
    std::istringstream words(line);
    words >> firstWord;
    std::vector<int> numbers;
    for (int number; words >> number;) numbers.push_back(number);
    return numbers;
}

Pixel PixelAt(const std::vector<int>& numbers, size_t at) {
    return {static_cast<uint8_t>(numbers[at]), static_cast<uint8_t>(numbers[at + 1]),
            static_cast<uint8_t>(numbers[at + 2])};
}

/// In the order of the formulas.
const char* const formulaNames[] = {
    "Normal", "Lighten", "Darken", "LightenOnly", "DarkenOnly", "Multiply", "Overlay", "Screen", "HardLight",
    "SoftLight", "Dodge", "Burn", "Exclusion", "Difference", "Hue", "HueUp", "HueDown", "Lightness", "Saturation",
    "SaturationUp", "SaturationDown", "RgbUp", "RgbDown", "Color", "ContrastUp", "ContrastDown",
    "NaturalContrastUp", "NaturalContrastDown", "Highlight", "Shade"};

template <size_t... type> auto PaintForms(std::index_sequence<type...>) {
    return std::array{&QLM_PaintPixel<std::tuple_element_t<type, QLM_LayerBlendFormulas>>...};
}

TEST_F(Shader, PaintFormsMatchTheVectors) {
    std::ifstream file(QLM_SOURCE_DIR "/../shared/vectors/shaders.tsv");
    if (!file) GTEST_SKIP() << "shared/vectors/shaders.tsv is not here";
    SetSaturationSpread(0.1f);
    const auto forms = PaintForms(std::make_index_sequence<QLM_BlendTypeCount>());
    std::set<std::string> shaders;
    for (std::string line, word; std::getline(file, line);) {
        const std::vector<int> numbers = NumbersOf(line, word);
        const auto name = std::find(std::begin(formulaNames), std::end(formulaNames),
                                    word.substr(std::min(word.size(), sizeof "QLM_Shader_" - 1)));
        if (numbers.size() != 13 || name == std::end(formulaNames)) continue;
        const Pixel d = PixelAt(numbers, 0), s = PixelAt(numbers, 3);
        const int a = numbers[6], m = numbers[7];
        Pixel out;
        forms[static_cast<size_t>(name - formulaNames)](d.data(), m, s.data(), a, {numbers[8], SaturationSpread()},
                                                        out.data());
        EXPECT_EQ(out, PixelAt(numbers, 9)) << line;
        EXPECT_EQ(QLM_RaiseMask(m, a), numbers[12]) << line;
        shaders.insert(word);
    }
    SetSaturationSpread(0.0f);
    EXPECT_EQ(shaders.size(), forms.size());
}

template <size_t... type> auto ResolveForms(std::index_sequence<type...>) {
    return std::array{&std::tuple_element_t<type, QLM_LayerBlendFormulas>::Apply...};
}

TEST_F(Shader, ResolveFormsMatchTheVectors) {
    const auto forms = ResolveForms(std::make_index_sequence<QLM_BlendTypeCount>());
    std::ifstream file(QLM_SOURCE_DIR "/tests/Rasterizer/blend_vectors.tsv");
    int rows = 0;
    for (std::string line, word; std::getline(file, line); ++rows) {
        const std::vector<int> numbers = NumbersOf(line, word);
        ASSERT_EQ(numbers.size(), 10u) << line;
        const Pixel d = PixelAt(numbers, 0), s = PixelAt(numbers, 3);
        Pixel out;
        forms[std::stoul(word)](d.data(), s.data(), numbers[6], {255, QLM_FullSaturationSpread.data()}, out.data());
        EXPECT_EQ(out, PixelAt(numbers, 7)) << line;
    }
    EXPECT_EQ(rows, 16 * QLM_BlendTypeCount);
}

TEST_F(Shader, QuotientsTruncateTowardZero) {
    for (int x = -65025; x <= 65025; ++x) ASSERT_EQ(QLM_Quotient255(x), x / 255);
    for (int d = 0; d < 256; ++d)
        for (int x = 0; x < 256; ++x)
            for (const int a : {0, 1, 100, 127, 254, 255}) ASSERT_EQ(QLM_BlendMix(d, x, a), QLM_MixByte(d, x, a));
}

TEST_F(Shader, HueLightnessAndSaturation) {
    const struct {
        Pixel rgb;
        int hue, lightness, saturation;
    } all[] = {
        {{255, 0, 0}, 0, 127, 255},     {{0, 255, 0}, 85, 127, 255}, {{0, 0, 255}, 170, 127, 255},
        {{255, 0, 128}, 235, 127, 255}, // below red: (0 - 128) x 255 / 255 / 6 = -21
        {{255, 255, 0}, 42, 127, 255},  // green decides: (0 - 255) + 510
        {{90, 90, 90}, 0, 90, 0},
    };
    for (const auto& expected : all) {
        const QLM_ByteHSL hsl = RGBToHSL(expected.rgb.data());
        EXPECT_EQ(hsl.hue, expected.hue);
        EXPECT_EQ(hsl.lightness, expected.lightness);
        EXPECT_EQ(hsl.saturation, expected.saturation);
    }
    Pixel rgb;
    HSLToRGB({77, 255, 200}, rgb.data());
    EXPECT_EQ(rgb, (Pixel{255, 255, 255}));
    HSLToRGB({77, 0, 200}, rgb.data());
    EXPECT_EQ(rgb, (Pixel{0, 0, 0}));
    HSLToRGB({85, 100, 255}, rgb.data());
    EXPECT_EQ(rgb, (Pixel{0, 200, 0}));
}

/// One pixel under a triangle that covers it wholly.
TEST_F(Shader, PassesOfEveryModePaintTheirFormula) {
    std::mt19937 random(3);
    int modes = 0;
    for (int mode = 0; mode < 46; ++mode) {
        const QLM_PaintPixelFunction form = QLM_GetPaintPixelFunction(mode);
        ASSERT_EQ(form != nullptr, QLM_GetPaintRasterizer(mode) != nullptr) << mode;
        if (!form) continue;
        ++modes;
        QLM_RasterizeOptions o;
        const uint8_t overlay = 255;
        Pixel read, target{};
        uint8_t readMask = 60, targetMask = 60;
        for (uint8_t& byte : read) byte = static_cast<uint8_t>(random());
        for (int i = 0; i < 3; ++i) {
            o.colorBytes[i] = static_cast<uint8_t>(random());
            o.vertex[i].x = i == 1 ? 9.0f : -3.0f;
            o.vertex[i].y = i == 2 ? 9.0f : -3.0f;
            o.vertex[i].overlayX = o.vertex[i].overlayY = 0.5f;
        }
        o.targetWidth = o.targetHeight = o.overlayWidth = o.overlayHeight = 1;
        o.overlayPixels = &overlay;
        o.readPixels = read.data(), o.targetPixels = target.data();
        o.readMask = &readMask, o.targetMask = &targetMask;
        o.strength = 100.5f / 255.0f;
        QLM_GetPaintRasterizer(mode)(o);
        Pixel expected;
        form(read.data(), 60, o.colorBytes, 100, {100, SaturationSpread()}, expected.data());
        EXPECT_EQ(target, expected) << mode;
        EXPECT_EQ(targetMask, 60 + 195 * 100 / 255) << mode;
    }
    EXPECT_EQ(modes, 27);

    // Strength alone acts: the brush's colour is taken as white. Burn with white on white stays white.
    const Pixel d = {100, 20, 200}, black = {0, 0, 0}, white = {255, 255, 255};
    Pixel out;
    QLM_GetPaintPixelFunction(22)(d.data(), 255, black.data(), 50, {255, SaturationSpread()}, out.data());
    EXPECT_EQ(out, (Pixel{150, 70, 250}));
    QLM_GetPaintPixelFunction(34)(white.data(), 255, white.data(), 255, {255, SaturationSpread()}, out.data());
    EXPECT_EQ(out, white);
}

} // namespace
