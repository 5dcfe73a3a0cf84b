#include "MapTestSupport.h"

#include "Core/TextStream/QLM_TextStream.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Images/QLM_ImageLoader.h"
#include "Maps/QLM_LayerBlendRows.h"
#include "Maps/QLM_LayerResolve.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rasterizer/QLM_BlendFormulas.h"
#include "Support/Rounds.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint8_t Checker[6] = {180, 180, 190, 140, 140, 160};

class Layers : public MapTest {
  protected:
    void TearDown() override {
        manager.Clear();
        MapTest::TearDown();
    }
    /// A map of one colour, without layers.
    QLM_MaterialMapSource* AddMap(uint32_t width, uint32_t height, Bytes color) {
        QLM_MaterialMapSource* map = manager.CreateMapSource();
        Bytes samples;
        for (uint32_t i = 0; i < width * height; ++i) samples.insert(samples.end(), color.begin(), color.end());
        SetPixels(*map, width, height, 3, samples);
        return map;
    }
    QLM_MapLayer* Find(const char* name) { return manager.GetLayerTree()->FindLayer(name); }
    /// Fills what a map holds for a layer and tells it.
    static void Fill(QLM_MaterialMapSource* member, Bytes color, uint8_t mask) {
        for (size_t i = 0; i < member->GetByteCount(); ++i) member->GetPixels()[i] = color[i % 3];
        member->Mask.ClearToByte(mask);
        member->OnWholeMapChanged();
    }
    static Bytes Composite(QLM_MaterialMapSource* map) {
        map->ResolveMapLayer(true);
        return PixelsOf(*map);
    }
    QLM_MapManager manager;
};

// The pixel loops.

TEST_F(Layers, VectorRowsEqualTheExactQuotientForAllInputs) {
    // Every old value, new value and weight: d + truncate((s - d) a / 255).
    Bytes color(768), layer(768), alpha(256), mask(256);
    for (const QLM_RowKernel kernel : {QLM_RowKernel::Scalar, QLM_RowKernel::Baseline, QLM_GetRowKernel()}) {
        const QLM_BlendRowFunction blend = QLM_GetBlendRow(0, kernel);
        int wrong = 0;
        for (int d = 0; d < 256; d += Rounds(1, 51))
            for (int s = 0; s < 256; s += 3) {
                for (int a = 0; a < 256; ++a) {
                    mask[a] = uint8_t(a), alpha[a] = uint8_t(d);
                    for (int c = 0; c < 3; ++c) color[a * 3 + c] = uint8_t(d), layer[a * 3 + c] = uint8_t(s + c);
                }
                blend({color.data(), alpha.data(), layer.data(), mask.data(), 255, 256});
                for (int a = 0; a < 256; ++a) {
                    for (int c = 0; c < 3; ++c) wrong += color[a * 3 + c] != d + (uint8_t(s + c) - d) * a / 255;
                    wrong += alpha[a] != d + (255 - d) * a / 255;
                }
            }
        EXPECT_EQ(wrong, 0) << int(kernel);

        wrong = 0;
        Bytes straight(768), alphas(256);
        for (int A = 0; A < 256; ++A) {
            for (int c = 0; c < 256; ++c) straight[c * 3] = straight[c * 3 + 1] = straight[c * 3 + 2] = uint8_t(c);
            std::fill(alphas.begin(), alphas.end(), A);
            if (A == 255) alphas.back() = 0; // or nothing would be computed
            QLM_FinishRow(straight.data(), alphas.data(), nullptr, 256, kernel);
            for (int c = 0; c < 255; ++c) wrong += straight[c * 3 + 1] != (A ? std::min(255, c * 255 / A) : 0);
        }
        EXPECT_EQ(wrong, 0) << int(kernel);
    }
}

struct SlowLayer {
    Bytes pixels, mask;
    int opacity, blendType;
};

/// One pixel at a time; formulas by the table of blend types.
void BlendSlowly(int type, const uint8_t* d, const uint8_t* s, int a, uint8_t* out) {
    const QLM_BlendParameters parameters{255, QLM_FullSaturationSpread.data()};
    int index = 0;
    std::apply(
        [&](auto... formula) {
            ((index++ == type ? decltype(formula)::Apply(d, s, a, parameters, out) : void()), ...);
        },
        QLM_LayerBlendFormulas());
}

void ResolveSlowly(const std::vector<SlowLayer>& layers, uint32_t width, uint32_t height, bool checker, Bytes& pixels,
                   Bytes& mask) {
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const size_t at = size_t(y) * width + x;
            uint8_t color[3] = {0, 0, 0};
            int A = 0;
            for (const SlowLayer& layer : layers) {
                const int a = layer.mask[at] * layer.opacity / 255;
                if (a == 0) continue;
                uint8_t out[3];
                BlendSlowly(layer.blendType, color, &layer.pixels[at * 3], a, out);
                std::copy_n(out, 3, color);
                A += (255 - A) * a / 255;
            }
            const uint8_t* under = Checker + ((x / 4 + y / 4) % 2) * 3;
            for (int c = 0; c < 3; ++c) {
                const int straight = A ? std::min(255, color[c] * 255 / A) : 0;
                pixels[at * 3 + c] = uint8_t(checker ? under[c] + (straight - under[c]) * A / 255 : straight);
            }
            mask[at] = uint8_t(A);
        }
}

TEST_F(Layers, RandomStacksEqualTheSlowVersionWithAnyThreads) {
    uint32_t seed = 7;
    const auto random = [&seed](uint32_t n) { return (seed = seed * 1664525u + 1013904223u) / 65536 % n; };
    for (int round = 0; round < Rounds(40, 12); ++round) {
        const uint32_t width = 1 + random(round % 4 ? 90 : 1500), height = 1 + random(60);
        std::vector<SlowLayer> slow(1 + random(12));
        std::vector<QLM_ResolveLayer> layers;
        for (SlowLayer& layer : slow) {
            layer.pixels = MixedSamples(size_t(width) * height * 3, random(30000));
            layer.mask = MixedSamples(size_t(width) * height, random(30000));
            // Masks as users paint them: all, nothing, and something between.
            for (uint8_t& m : layer.mask) m = m < 80 ? 0 : m > 160 ? 255 : m;
            layer.opacity = round % 3 ? int(random(256)) : 255;
            layer.blendType = int(random(QLM_BlendTypeCount));
            layers.push_back({layer.pixels.data(), layer.mask.data(), uint8_t(layer.opacity), layer.blendType});
        }
        const bool checker = round % 2 == 0;
        Bytes pixels(size_t(width) * height * 3), mask(size_t(width) * height), fastPixels = pixels, fastMask = mask;
        ResolveSlowly(slow, width, height, checker, pixels, mask);
        std::vector<QLM_ResolveRun> runs;
        for (uint32_t y = 0; y < height; y += 7)
            for (const uint32_t x : {0u, width / 3})
                runs.push_back({x, y, x ? width : width / 3, std::min(height, y + 7)});
        if (width < 3) runs = {{0, 0, width, height}};
        for (const int threads : {1, 2, 5}) {
            QLM_ShutdownCrunchers();
            QLM_OS::SetNumberOfThreads(threads);
            QLM_ResolveRuns({fastPixels.data(), fastMask.data(), width, height, checker ? Checker : nullptr}, layers,
                            runs);
            ASSERT_EQ(fastPixels, pixels) << round << " " << threads;
            ASSERT_EQ(fastMask, mask) << round << " " << threads;
        }
    }
}

TEST_F(Layers, ValuesWorkedOutByHand) {
    const Bytes base = {200, 100, 50}, red = {255, 0, 0}, full = {255}, half = {127};
    const auto resolve = [&](std::vector<QLM_ResolveLayer> layers, const uint8_t* checker, uint32_t x) {
        // Eight pixels in a row: two checker cells.
        std::vector<Bytes> planes;
        for (QLM_ResolveLayer& layer : layers) {
            Bytes colors, masks;
            for (int i = 0; i < 8; ++i) {
                colors.insert(colors.end(), layer.pixels, layer.pixels + 3);
                masks.push_back(*layer.mask);
            }
            planes.push_back(colors);
            planes.push_back(masks);
        }
        for (size_t i = 0; i < layers.size(); ++i) {
            layers[i].pixels = planes[i * 2].data();
            layers[i].mask = planes[i * 2 + 1].data();
        }
        Bytes pixels(24), mask(8);
        QLM_ResolveRuns({pixels.data(), mask.data(), 8, 1, checker}, layers, {{0, 0, 8, 1}});
        return Bytes{pixels[x * 3], pixels[x * 3 + 1], pixels[x * 3 + 2], mask[x]};
    };
    const QLM_ResolveLayer bottom = {base.data(), full.data(), 255, 0}, top = {red.data(), half.data(), 255, 0};
    EXPECT_EQ(resolve({bottom, top}, Checker, 0), (Bytes{227, 51, 26, 255}));
    EXPECT_EQ(resolve({bottom, {red.data(), half.data(), 127, 0}}, Checker, 0), (Bytes{213, 76, 38, 255}));
    EXPECT_EQ(resolve({top}, nullptr, 0), (Bytes{255, 0, 0, 127}));
    EXPECT_EQ(resolve({top}, Checker, 3), (Bytes{217, 91, 96, 127}));
    EXPECT_EQ(resolve({top}, Checker, 4), (Bytes{197, 71, 81, 127}));
    EXPECT_EQ(resolve({}, Checker, 4), (Bytes{140, 140, 160, 0})) << "nothing visible shows the checker";
    EXPECT_EQ(resolve({{base.data(), full.data(), 255, 5}}, nullptr, 0), (Bytes{0, 0, 0, 255}))
        << "Multiply on nothing is black";
}

// Layers and their members.

TEST_F(Layers, BlendTypesHaveTheirNames) {
    std::string name, shortName;
    QLM_MapLayer::GetBlendName(27, name);
    QLM_MapLayer::GetBlendShortName(8, shortName);
    EXPECT_EQ(name, "Natural Contrast Down");
    EXPECT_EQ(shortName, "Hard L.");
    QLM_MapLayer::GetBlendName(30, name);
    EXPECT_EQ(name, "undef");
    EXPECT_EQ(QLM_MapLayer::GetBlendTypeCount(), 30);
    EXPECT_EQ(QLM_MapLayer::FindBlendType("con.up"), 24);
    EXPECT_EQ(QLM_MapLayer::FindBlendType("Mul"), -1);
}

TEST_F(Layers, FirstLayerKeepsThePaintedMapAsBackground) {
    QLM_MaterialMapSource *map = AddMap(8, 4, {10, 20, 30}), *bound = AddMap(2, 2, {1, 2, 3});
    map->Mask.SetDimensions(8, 4, 1);
    map->Mask.ClearToByte(200);
    EXPECT_EQ(map->GetCurrentLayerData(true), map) << "no layers: the map itself";
    EXPECT_EQ(manager.GetCurrentMapLayer(), nullptr);

    QLM_MapLayer* layer = manager.CreateMapLayer("Paint");
    EXPECT_EQ(manager.GetCurrentMapLayer(), layer);
    EXPECT_TRUE(Find("Background")->IsBase);
    const float red[3] = {1, 0, 0};
    std::copy_n(red, 3, map->DefaultColor);
    EXPECT_EQ(map->GetCurrentLayerData(false), nullptr);
    QLM_MaterialMapSource* member = map->GetCurrentLayerData(true);
    ASSERT_NE(member, nullptr);
    EXPECT_TRUE(member->GetBool("isLayerData"));
    EXPECT_EQ(PixelsOf(*member)[0], 255);
    EXPECT_EQ(PixelsOf(*member)[4], 0);
    EXPECT_EQ(PixelsOf(member->Mask), Bytes(32, 0));
    QLM_MaterialMapSource* base = map->GetLayerData(Find("Background"), false);
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(PixelsOf(base->Mask), Bytes(32, 200));
    EXPECT_EQ(PixelsOf(*base), PixelsOf(*AddMap(8, 4, {10, 20, 30})));
    // 10 x 200 / 255 = 7 and 7 x 255 / 200 = 8, and so on.
    EXPECT_EQ(Composite(map), PixelsOf(*AddMap(8, 4, {8, 19, 29})));
    EXPECT_EQ(PixelsOf(map->Mask), Bytes(32, 200));

    bound->GetResolvedPixels();
    EXPECT_FALSE(bound->HasLayerData()) << "a map that is merely bound";
    Find("Background")->Hide();
    bound->GetResolvedPixels();
    EXPECT_EQ(PixelsOf(bound->Mask), Bytes(4, 0)) << "a hidden base hides it all the same";
    Find("Background")->Unhide();
    EXPECT_EQ(Composite(bound), (Bytes{1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3}));
}

TEST_F(Layers, OnlyDirtyCellsAreRecomputed) {
    QLM_MaterialMapSource* map = AddMap(128, 128, {10, 20, 30});
    manager.CreateMapLayer("Paint");
    QLM_MaterialMapSource* member = map->GetCurrentLayerData(true);
    EXPECT_EQ(map->DirtyCount, 4096);
    map->GetResolvedPixels();
    EXPECT_EQ(map->DirtyCount, 0);
    // Whatever is recomputed loses this mark.
    std::fill_n(map->GetPixels(), map->GetByteCount(), uint8_t(7));
    const float low[2] = {0.5f, 0.25f}, high[2] = {0.51f, 0.25f};
    member->OnPartialMapChanged(low, high); // two pixels more on each side: 62..67, 30..34 of cells two pixels wide
    EXPECT_EQ(map->DirtyCount, 3 * 3);
    map->GetResolvedPixels();
    int recomputed = 0;
    for (int y = 0; y < 128; ++y)
        for (int x = 0; x < 128; ++x) {
            if (map->GetPixels()[(y * 128 + x) * 3] == 7) continue;
            ++recomputed;
            EXPECT_TRUE(x >= 62 && x < 68 && y >= 30 && y < 36) << x << " " << y;
        }
    EXPECT_EQ(recomputed, 36);

    // A layer's change makes everything stale, a locked layer stays visible.
    manager.GetCurrentMapLayer()->SetOpacity(0.5f);
    EXPECT_EQ(map->DirtyCount, 4096);
    EXPECT_TRUE(map->HasUnsavedChanges());
    manager.GetCurrentMapLayer()->Lock();
    EXPECT_EQ(Composite(map)[1], 20);
    EXPECT_EQ(map->DirtyCount, 4096) << "the next display puts the checker back";
}

TEST_F(Layers, LastLayerLeavesTheCompositeBehind) {
    QLM_MaterialMapSource* map = AddMap(8, 4, {200, 100, 50});
    QLM_MapLayer* paint = manager.CreateMapLayer("Paint");
    Fill(map->GetCurrentLayerData(true), {255, 0, 0}, 127);
    Find("Background")->Hide();
    manager.DeleteMapLayer(Find("Background"));
    EXPECT_EQ(manager.GetCurrentMapLayer(), paint);
    manager.DeleteMapLayer(paint);
    EXPECT_EQ(manager.GetCurrentMapLayer(), nullptr);
    EXPECT_FALSE(map->HasLayerData());
    EXPECT_EQ(map->GetCurrentLayerData(true), map);
    map->GetResolvedPixels();
    EXPECT_EQ((Bytes{PixelsOf(*map)[0], PixelsOf(*map)[1], PixelsOf(map->Mask)[0]}), (Bytes{255, 0, 127}));
    // The next first layer takes it over again.
    manager.CreateMapLayer();
    map->GetCurrentLayerData(true);
    EXPECT_EQ(Composite(map)[0], 255);
    EXPECT_EQ(PixelsOf(map->Mask)[31], 127);
    // Its pixels outlive a last layer that is hidden, too.
    manager.DeleteMapLayer(manager.GetCurrentMapLayer());
    Find("Background")->Hide();
    map->GetResolvedPixels();
    manager.DeleteMapLayer(Find("Background"));
    EXPECT_EQ((Bytes{PixelsOf(*map)[0], PixelsOf(*map)[1], PixelsOf(map->Mask)[0]}), (Bytes{255, 0, 127}));
}

TEST_F(Layers, UnequalMembersAreResized) {
    QLM_MaterialMapSource* map = AddMap(4, 4, {10, 20, 30});
    manager.CreateMapLayer("Paint");
    QLM_MaterialMapSource* member = map->GetCurrentLayerData(true);
    SetPixels(*member, 2, 2, 3, Bytes(12, 90));
    SetPixels(member->Mask, 2, 2, 1, Bytes(4, 255));
    EXPECT_EQ(Composite(map), Bytes(48, 90));
    EXPECT_EQ(member->GetWidth(), 4u);
    EXPECT_EQ(member->Mask.GetWidth(), 4u);
    map->ResizeWithLayers(6, 2);
    for (const QLM_MaterialMapSource::Member& each : map->GetMembers()) {
        EXPECT_EQ(each.map->GetWidth() * 10 + each.map->GetHeight(), 62u);
        EXPECT_EQ(each.map->Mask.GetWidth() * 10 + each.map->Mask.GetHeight(), 62u);
    }
    EXPECT_EQ(Composite(map), Bytes(36, 90));
}

TEST_F(Layers, MergeLeavesLockedLayersWhereTheyStand) {
    QLM_MaterialMapSource *map = AddMap(8, 8, {200, 100, 50}), *other = AddMap(2, 1, {9, 8, 7});
    for (const char* name : {"Low", "Locked", "High"}) {
        manager.CreateMapLayer(name);
        Fill(map->GetCurrentLayerData(true), {uint8_t(name[0]), uint8_t(name[1]), 0}, 100);
    }
    Find("Locked")->Lock();
    Find("Background")->SetOpacity(0.5f);
    manager.CreateMapLayer("Unseen");
    Fill(map->GetCurrentLayerData(true), {1, 1, 1}, 255);
    Find("Unseen")->Hide();
    manager.GetLayerTree()->MoveLayer(Find("Locked"), 1);

    // Without the locked layer the merged ones look as before, and it blends once.
    Find("Locked")->Hide();
    const Bytes merged = Composite(map);
    Find("Locked")->Unhide();
    Find("Locked")->Lock();
    std::string error;
    ASSERT_TRUE(manager.MergeVisibleImageLayers(false, error)) << error;
    std::vector<std::string> names;
    for (QLM_MapLayer* layer : manager.GetLayerTree()->GetLayers()) names.push_back(layer->GetName());
    EXPECT_EQ(names, (std::vector<std::string>{"Merged Layers", "Locked", "Unseen"}));
    EXPECT_STREQ(manager.GetCurrentMapLayer()->GetName(), "Merged Layers");
    EXPECT_TRUE(manager.GetCurrentMapLayer()->IsBase) << "it carries the other maps now";
    EXPECT_EQ(PixelsOf(*map->GetCurrentLayerData(false)), merged);
    EXPECT_EQ(map->GetMembers().size(), 3u);
    // Never shown, and faded all the same: 9 x 127 / 255 is 4, 4 x 255 / 127 is 8.
    ASSERT_TRUE(other->HasLayerData());
    EXPECT_EQ(PixelsOf(*other->GetCurrentLayerData(true)), (Bytes{8, 6, 6, 8, 6, 6}));
    EXPECT_EQ(PixelsOf(other->GetCurrentLayerData(true)->Mask), (Bytes{127, 127}));
    EXPECT_FALSE(manager.MergeVisibleImageLayers(false, error)) << "one layer is left that may merge";
}

TEST_F(Layers, MoveCountsFromTheBottomThroughFolders) {
    for (const char* name : {"A", "B", "C"}) manager.CreateMapLayer(name);
    auto* folder = new QLM_MapLayerGroup;
    manager.GetLayerTree()->AddChild(folder);
    folder->AddLayer("D");
    const auto order = [&] {
        std::string all;
        for (QLM_MapLayer* layer : manager.GetLayerTree()->GetLayers())
            all += layer->GetName()[0] == 'B' && layer->IsBase ? 'b' : layer->GetName()[0];
        return all;
    };
    EXPECT_EQ(order(), "DbABC") << "folders come before the items beside them";
    manager.GetLayerTree()->MoveLayer(Find("C"), 0);
    EXPECT_EQ(order(), "CDbAB");
    manager.GetLayerTree()->MoveLayer(Find("D"), 4);
    EXPECT_EQ(order(), "CbABD");
}

// Files and records.

TEST_F(Layers, PicturesGoIntoTheCurrentLayer) {
    const TestFolder folder;
    std::string error;
    const Bytes picture = {255, 0, 0, 0, 0, 255, 0, 128, 9, 9, 9, 255, 8, 8, 8, 255};
    ASSERT_TRUE(SaveMapToFile(folder.path + "a.png", picture.data(), 2, 2, true, error)) << error;

    // Without layers the picture is the map, and its alpha comes back from a layer made later.
    QLM_MaterialMapSource* map = AddMap(4, 2, {1, 2, 3});
    ASSERT_TRUE(manager.ImportMapIntoCurrentLayer(map, folder.path + "a.png", error)) << error;
    EXPECT_EQ(map->GetWidth(), 2u);
    manager.CreateMapLayer("Paint");
    map->GetCurrentLayerData(true);
    EXPECT_EQ(Composite(map)[4], 255);
    EXPECT_EQ(PixelsOf(map->Mask), (Bytes{0, 128, 255, 255}));

    // With layers it goes into the member, in the map's size.
    QLM_MaterialMapSource* layered = AddMap(4, 2, {1, 2, 3});
    ASSERT_TRUE(manager.ImportMapIntoCurrentLayer(layered, folder.path + "a.png", error)) << error;
    EXPECT_EQ(layered->GetWidth(), 4u);
    QLM_MaterialMapSource* member = layered->GetCurrentLayerData(false);
    EXPECT_EQ(PixelsOf(member->Mask), (Bytes{0, 64, 128, 128, 255, 255, 255, 255}));
    EXPECT_EQ(PixelsOf(*layered->GetLayerData(Find("Background"), false)),
              Bytes({1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3}));
    const Bytes before = PixelsOf(*member);
    EXPECT_FALSE(manager.ImportMapIntoCurrentLayer(layered, folder.path + "none.png", error));
    manager.GetCurrentMapLayer()->Lock();
    EXPECT_FALSE(manager.ImportMapIntoCurrentLayer(layered, folder.path + "a.png", error));
    EXPECT_EQ(error, "The image map layer 'Paint' is locked");
    EXPECT_EQ(PixelsOf(*member), before);

    // The layer alone, the composite, and its alpha as a grey picture.
    QLM_LoadedImage image;
    ASSERT_TRUE(manager.ExportMapFromCurrentLayer(layered, folder.path + "layer.png", error)) << error;
    ASSERT_TRUE(QLM_LoadImage(folder.path + "layer.png", image, error)) << error;
    EXPECT_EQ(image.color, before);
    ASSERT_TRUE(manager.ExportImageMap(map, folder.path + "b.png", error, folder.path + "mask.png")) << error;
    ASSERT_TRUE(QLM_LoadImage(folder.path + "b.png", image, error)) << error;
    EXPECT_EQ(image.alpha, (Bytes{0, 128, 255, 255}));
    EXPECT_EQ(Bytes(image.color.begin() + 3, image.color.begin() + 6), (Bytes{0, 255, 0})) << "no checker in it";
    ASSERT_TRUE(QLM_LoadImage(folder.path + "mask.png", image, error)) << error;
    EXPECT_EQ(image.color, (Bytes{0, 0, 0, 128, 128, 128, 255, 255, 255, 255, 255, 255}));

    // Loading replaces the map with all that hangs on it.
    ASSERT_TRUE(layered->LoadFromFileWithAlpha(folder.path + "a.png", error)) << error;
    EXPECT_FALSE(layered->HasLayerData());
    EXPECT_EQ(PixelsOf(layered->Mask), (Bytes{0, 128, 255, 255}));
}

TEST_F(Layers, EditsReachTheLayerThatTakesPaint) {
    QLM_MaterialMapSource* map = AddMap(2, 1, {0, 0, 0});
    std::string error;
    SetPixels(*map, 2, 1, 3, {50, 100, 60, 70, 90, 80});
    ASSERT_TRUE(manager.NormalizeImageMaps({map}, error));
    EXPECT_EQ(PixelsOf(*map), (Bytes{0, 255, 51, 102, 204, 153}));
    ASSERT_TRUE(manager.ConvertImageMapsToGreyscale({map}, error));
    EXPECT_EQ(PixelsOf(*map), (Bytes{102, 102, 102, 153, 153, 153}));

    manager.CreateMapLayer("Paint");
    ASSERT_TRUE(manager.InvertImageMaps({map}, error));
    EXPECT_EQ(PixelsOf(*map), (Bytes{102, 102, 102, 153, 153, 153})) << "what it holds is the base layer's";
    map->GetCurrentLayerData(true);
    manager.CreateMapLayer("Above");
    const Bytes composite = Composite(map);
    ASSERT_TRUE(manager.InvertImageMaps({map}, error));
    ASSERT_TRUE(manager.ClearImageMaps({map}, false, error));
    EXPECT_EQ(map->GetCurrentLayerData(false), nullptr);
    EXPECT_EQ(Composite(map), composite) << "a map without that member is skipped";
    ASSERT_TRUE(manager.ClearImageMaps({map}, true, error));
    EXPECT_EQ(Composite(map), Bytes(6, 0)) << "opaque background colour";
    ASSERT_TRUE(manager.ClearImageMaps({map}, false, error));
    EXPECT_EQ(Composite(map), composite) << "plain clearing makes the layer transparent";
    manager.GetCurrentMapLayer()->Hide();
    EXPECT_FALSE(manager.InvertImageMaps({map}, error));
    EXPECT_EQ(error, "The image map layer 'Above' is hidden");
}

/// A stream for one record.
class Record {
  public:
    explicit Record(const std::string& text = {}) : file(tmpfile()) {
        fputs(text.c_str(), file);
        rewind(file);
    }
    ~Record() { fclose(file); }
    FILE* const file;
};

TEST_F(Layers, RecordsComeBackWithEveryByte) {
    QLM_MaterialMapSource *map = AddMap(5, 3, {0, 0, 0}), *plain = AddMap(5, 3, {0, 0, 0});
    SetPixels(*map, 5, 3, 3, MixedSamples(45));
    SetPixels(*plain, 5, 3, 3, MixedSamples(45, 3));
    SetPixels(plain->Mask, 5, 3, 1, MixedSamples(15, 4));
    map->SetMapFileName("skin/a.png");
    manager.CreateMapLayer("Paint")->SetBlendType(6);
    Fill(map->GetCurrentLayerData(true), {30, 200, 100}, 90);
    manager.CreateMapLayer("Unsaved")->SetBool("excludeFromSaving", true);
    map->GetCurrentLayerData(true);
    Find("Paint")->SetOpacity(0.25f);
    Find("Paint")->Lock();
    manager.SetCurrentMapLayer(Find("Paint"));

    const char* const folder = getenv("TMPDIR");
    const std::string formerFolder = folder ? folder : "/tmp";
    for (const char* way : {"pictures", "raw", "no room for pictures"}) {
        QLM_MaterialMapSource::WriteUncompressedRecords = way[0] == 'r';
        Record tree, record, plainRecord;
        if (way[0] == 'n') setenv("TMPDIR", "/proc", 1); // takes no files
        ASSERT_TRUE(manager.GetLayerTree()->SaveToStream_Text(tree.file));
        ASSERT_TRUE(map->SaveToStream_Text(record.file));
        ASSERT_TRUE(plain->SaveToStream_Text(plainRecord.file));
        QLM_MaterialMapSource::WriteUncompressedRecords = false;
        setenv("TMPDIR", formerFolder.c_str(), 1);
        for (FILE* file : {tree.file, record.file, plainRecord.file}) rewind(file);

        QLM_MapManager other;
        ASSERT_TRUE(other.GetLayerTree()->LoadFromStream_Text(tree.file, 0));
        ASSERT_EQ(other.GetLayerTree()->GetLayers().size(), 2u);
        const QLM_MapLayer* paint = other.GetLayerTree()->FindLayer("Paint");
        EXPECT_EQ(paint->BlendType, 6);
        EXPECT_EQ(paint->Strength, 0.25f);
        EXPECT_TRUE(paint->IsLocked());
        EXPECT_EQ(other.GetCurrentMapLayer(), paint);
        EXPECT_TRUE(other.GetLayerTree()->FindLayer("Background")->IsBase);

        QLM_MaterialMapSource *loaded = other.CreateMapSource(), *loadedPlain = other.CreateMapSource();
        ASSERT_TRUE(loaded->LoadFromStream_Text(record.file, 0));
        EXPECT_EQ(loaded->GetMapFileName(), "skin\\a.png");
        EXPECT_EQ(loaded->GetMembers().size(), 2u);
        EXPECT_EQ(Composite(loaded), Composite(map));
        EXPECT_EQ(PixelsOf(loaded->Mask), PixelsOf(map->Mask));
        ASSERT_TRUE(loadedPlain->LoadFromStream_Text(plainRecord.file, 0));
        EXPECT_EQ(PixelsOf(*loadedPlain), PixelsOf(*plain));
        EXPECT_EQ(PixelsOf(loadedPlain->Mask), PixelsOf(plain->Mask)) << "no layer, yet the mask is kept";
        other.Clear();
    }
}

TEST_F(Layers, NamesTieMembersToLayers) {
    for (const char* name : {"Skin", "  ", " Skin "}) manager.CreateMapLayer(name);
    std::string names;
    for (QLM_MapLayer* layer : manager.GetLayerTree()->GetLayers()) names += std::string(layer->GetName()) + ";";
    EXPECT_EQ(names, "Background;Skin;New Layer;Skin (1);") << "a record loses the blanks around a name";
    // One that a name can't be is kept otherwise, and found all the same.
    const Record tree("{\nmapLayer\t50%: low\n{\n}\n}\n"),
        record("{\nWidth\t1\nHeight\t1\nlayer\t50%: low\n{\nWidth\t1\nHeight\t1\n}\n}\n");
    ASSERT_TRUE(manager.GetLayerTree()->LoadFromStream_Text(tree.file, 0));
    QLM_MaterialMapSource* map = manager.CreateMapSource();
    EXPECT_TRUE(map->LoadFromStream_Text(record.file, 0));
    EXPECT_EQ(map->GetMembers().size(), 1u);
}

TEST_F(Layers, SeedRecordsLoadAndShow) {
    const auto load = [&](const char* name) {
        FILE* file = fopen((QLM_SOURCE_DIR "/tests/fuzz/corpus/mapsource/" + std::string(name)).c_str(), "rb");
        QLM_MaterialMapSource* map = manager.CreateMapSource();
        EXPECT_TRUE(map->LoadFromStream_Text(file, 0)) << name;
        fclose(file);
        return map;
    };
    manager.CreateMapLayer("Paint");
    QLM_MaterialMapSource *plain = load("plain"), *raw = load("raw"), *layers = load("layers");
    EXPECT_EQ(PixelsOf(*plain), PixelsOf(*AddMap(3, 2, {200, 100, 50})));
    EXPECT_EQ(PixelsOf(plain->Mask), (Bytes{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(PixelsOf(*raw)[17], 17);
    EXPECT_STREQ(raw->GetName(), "skin.PNG");
    EXPECT_EQ(Composite(layers)[17], 7);
    EXPECT_EQ(layers->GetMembers().size(), 2u);
    EXPECT_EQ(load("wrongmask")->DefaultColor[0], 0.0f);
}

TEST_F(Layers, BadRecordsAreRefused) {
    // A mask of another size: a message, and the rest is read.
    Record record;
    QLM_PrintToFile(record.file, "{\nWidth\t2\nHeight\t2\n");
    QLM_WriteCompressedBlock(record.file, "mask", "abc", 3);
    QLM_PrintToFile(record.file, "DefaultColor\t0.5 0 0\nFileFormat\tJPG\n}\n");
    rewind(record.file);
    QLM_MaterialMapSource* map = manager.CreateMapSource();
    map->SetNameText("face");
    EXPECT_TRUE(map->LoadFromStream_Text(record.file, 0));
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "The mask in the map 'face' has the wrong dimensions");
    EXPECT_FALSE(map->Mask.HasPixels());
    EXPECT_EQ(map->DefaultColor[0], 0.5f);
    EXPECT_STREQ(map->GetName(), "face.JPG");

    const char* const refused[] = {"{\nWidth\t2\nHeight\t2\nlayer\tnobody\n{\n}\n}\n",
                                   "{\nWidth\t20001\nHeight\t1\n}\n", "{\nWidth\t-1\nHeight\t4\n}\n",
                                   "{\nWidth\t2\nHeight\t2\nbinaryData\t\n{\nrawDataSize\t12\nDATA_BEGIN\nabc"};
    for (const char* text : refused) {
        const Record bad(text);
        EXPECT_FALSE(map->LoadFromStream_Text(bad.file, 0)) << text;
    }
    const Record empty("{\nWidth\t20000\nHeight\t20000\n}\n");
    QLM_MaterialMapSource* unfilled = manager.CreateMapSource();
    EXPECT_TRUE(unfilled->LoadFromStream_Text(empty.file, 0));
    EXPECT_FALSE(unfilled->HasPixels()) << "a few bytes don't justify a gigabyte";
    map->SetBool("excludeFromSaving", true);
    EXPECT_FALSE(map->SaveToStream_Text(record.file));
}

} // namespace
