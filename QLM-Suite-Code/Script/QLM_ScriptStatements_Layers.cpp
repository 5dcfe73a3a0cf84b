// Statements of maps and their layers.

#include "Core/OS/QLM_Files.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_LayerManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_Random.h"
#include "Script/QLM_JSONLine.h"
#include "Script/QLM_ScriptState.h"

namespace {

QLM_MapManager& Maps() { return *QLM_GetManagers().GetMapManager(); }
QLM_MapLayerGroup& Layers() { return *QLM_GetManagers().GetLayerManager()->GetMapLayerTree(); }

/// What follows the verb and the name.
struct Call {
    const QLM_ScriptState& state;
    const QLM_ScriptWords& words;
    std::string& error;

    const std::string& Word(size_t i) const { return words[i + 3]; }
    size_t Count() const { return words.size() - 3; }
    std::string WritePath(size_t i) const {
        const std::string path = state.WritePath(Word(i));
        QLM_CreateDirectory(QLM_FolderOf(path));
        return path;
    }
    bool Fail(const std::string& text) const {
        error = text;
        return false;
    }
};

// Layers.

QLM_MapLayer* FindLayer(const std::string& word, std::string& error) {
    QLM_MapLayerGroup& layers = Layers();
    if (QLM_MapLayer* layer = layers.FindLayer(word)) return layer;
    std::string name;
    int occurrence;
    QLM_SplitOccurrence(word, name, occurrence);
    if (QLM_MapLayer* layer = layers.FindLayer(name, occurrence)) return layer;
    error = "there is no layer \"" + word + "\"; there are:";
    for (const QLM_MapLayer* layer : layers.GetLayers()) error += std::string(" \"") + layer->GetName() + "\"";
    return nullptr;
}

struct LayerVerb {
    const char* name;
    size_t words; ///< behind the layer's name
    bool (*run)(QLM_MapLayer&, const Call&);
};

bool SelectLayer(QLM_MapLayer& layer, const Call&) {
    Maps().SetCurrentMapLayer(&layer);
    return true;
}

bool BlendLayer(QLM_MapLayer& layer, const Call& call) {
    long long number;
    int type = QLM_MapLayer::FindBlendType(call.Word(0));
    if (QLM_ParseInteger(call.Word(0), 0, QLM_MapLayer::GetBlendTypeCount() - 1, number))
        type = static_cast<int>(number);
    if (type < 0) {
        call.error = "there is no blend type \"" + call.Word(0) + "\"; there are:";
        std::string name;
        for (int i = 0; i < QLM_MapLayer::GetBlendTypeCount(); ++i) {
            QLM_MapLayer::GetBlendName(i, name);
            call.error += " \"" + name + "\"";
        }
        return false;
    }
    layer.SetBlendType(type);
    return true;
}

bool FadeLayer(QLM_MapLayer& layer, const Call& call) {
    double opacity;
    if (!QLM_ParseNumber(call.Word(0), opacity) || opacity < 0 || opacity > 1)
        return call.Fail("an opacity is a number from 0 to 1, not \"" + call.Word(0) + "\"");
    layer.SetOpacity(static_cast<float>(opacity));
    return true;
}

bool MoveLayer(QLM_MapLayer& layer, const Call& call) {
    const long long count = static_cast<long long>(Layers().GetLayers().size());
    long long index;
    if (!QLM_ParseInteger(call.Word(0), 0, count - 1, index))
        return call.Fail("a layer's place is 0, the bottom, to " + std::to_string(count - 1));
    Layers().MoveLayer(&layer, static_cast<int>(index));
    return true;
}

constexpr LayerVerb layerVerbs[] = {
    {"select", 0, SelectLayer},
    {"delete", 0, [](QLM_MapLayer& layer, const Call&) { return Maps().DeleteMapLayer(&layer), true; }},
    {"blend", 1, BlendLayer},
    {"opacity", 1, FadeLayer},
    {"hide", 0, [](QLM_MapLayer& layer, const Call&) { return layer.Hide(), true; }},
    {"show", 0, [](QLM_MapLayer& layer, const Call&) { return layer.Unhide(), true; }},
    {"lock", 0, [](QLM_MapLayer& layer, const Call&) { return layer.Lock(), true; }},
    {"unlock", 0, [](QLM_MapLayer& layer, const Call&) { return layer.Unlock(), true; }},
    {"move", 1, MoveLayer},
};

bool Layer(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    if (words.size() == 2 && words[1] == "merge") return Maps().MergeVisibleImageLayers(false, error);
    if (words.size() == 3 && words[1] == "create") {
        Maps().CreateMapLayer(words[2]);
        return true;
    }
    if (words.size() == 2) {
        QLM_MapLayer* layer = FindLayer(words[1], error);
        if (layer) Maps().SetCurrentMapLayer(layer);
        return layer;
    }
    for (const LayerVerb& verb : layerVerbs) {
        if (words[1] != verb.name || words.size() != verb.words + 3) continue;
        QLM_MapLayer* layer = FindLayer(words[2], error);
        return layer && verb.run(*layer, {state, words, error});
    }
    error = "layer takes: NAME, create NAME, select NAME, delete NAME, blend NAME TYPE, opacity NAME 0..1, hide NAME, "
            "show NAME, lock NAME, unlock NAME, move NAME INDEX, merge";
    return false;
}

// Maps.

bool ParseSize(const Call& call, uint32_t& width, uint32_t& height) {
    long long sides[2];
    for (size_t i = 0; i < 2; ++i)
        if (!QLM_ParseInteger(call.Word(i), 1, 1000000, sides[i]))
            return call.Fail("a map's side is a whole number from 1, not \"" + call.Word(i) + "\"");
    // Larger ones are cut, as those of pictures are.
    width = std::min(static_cast<uint32_t>(sides[0]), QLM_MaterialMapSource::MaximumSide);
    height = std::min(static_cast<uint32_t>(sides[1]), QLM_MaterialMapSource::MaximumSide);
    return true;
}

bool CreateMap(const Call& call) {
    uint32_t width, height;
    if (call.words[2].empty()) return call.Fail("a map needs a name");
    if (!ParseSize(call, width, height)) return false;
    float color[3] = {1, 1, 1};
    for (size_t i = 2; i < call.Count(); ++i) {
        double channel;
        if (!QLM_ParseNumber(call.Word(i), channel) || channel < 0 || channel > 1)
            return call.Fail("a colour is three numbers from 0 to 1");
        color[i - 2] = static_cast<float>(channel);
    }
    QLM_MaterialMapSource* map = Maps().CreateMapSource();
    Maps().RenameMap(map, call.words[2]);
    std::copy_n(color, 3, map->DefaultColor);
    map->Initialize(width, height, color);
    return true;
}

bool ResizeMap(QLM_MaterialMapSource& map, const Call& call) {
    uint32_t width, height;
    if (!ParseSize(call, width, height)) return false;
    if (!map.HasPixels()) return call.Fail(std::string("the map \"") + map.GetName() + "\" has no pixels");
    Maps().BeforeMapsChange();
    map.ResizeWithLayers(width, height);
    Maps().StartOverdrawCheck(&map);
    QLM_PostEvent(QLM_Event_AllViewportsChanged);
    return true;
}

bool ImportMap(QLM_MaterialMapSource& map, const Call& call) {
    if (!Maps().ImportMapIntoCurrentLayer(&map, call.state.ReadPath(call.Word(0)), call.error)) return false;
    Maps().StartOverdrawCheck(&map);
    return true;
}

bool LoadMap(QLM_MaterialMapSource& map, const Call& call) {
    const std::string path = QLM_ResolveCase(call.state.ReadPath(call.Word(0)));
    Maps().BeforeMapsChange();
    if (!map.LoadFromFileWithAlpha(path, call.error)) return false;
    map.SetMapFileName(path);
    map.IsDefaultMap = false;
    Maps().StartOverdrawCheck(&map);
    QLM_PostEvent(QLM_Event_AllViewportsChanged);
    return true;
}

bool ClearMap(QLM_MaterialMapSource& map, const Call& call) {
    if (call.Count() == 1 && call.Word(0) != "alt") return call.Fail("map clear takes a name, and alt behind it");
    return Maps().ClearImageMaps({&map}, call.Count() == 1, call.error);
}

bool ExportMap(QLM_MaterialMapSource& map, const Call& call) {
    if (call.Count() != 1 && (call.Count() != 3 || call.Word(1) != "mask"))
        return call.Fail("map export takes a name and a path, and mask with a path behind them");
    const std::string path = call.WritePath(0), maskPath = call.Count() == 3 ? call.WritePath(2) : std::string();
    return Maps().ExportImageMap(&map, path, call.error, maskPath);
}

struct MapVerb {
    const char* name;
    size_t minimumWords, maximumWords; ///< behind the map's name
    bool (*run)(QLM_MaterialMapSource&, const Call&);
};
constexpr MapVerb mapVerbs[] = {
    {"resize", 2, 2, ResizeMap},
    {"import", 1, 1, ImportMap},
    {"load", 1, 1, LoadMap},
    {"invert", 0, 0,
     [](QLM_MaterialMapSource& map, const Call& call) { return Maps().InvertImageMaps({&map}, call.error); }},
    {"grey", 0, 0,
     [](QLM_MaterialMapSource& map, const Call& call) {
         return Maps().ConvertImageMapsToGreyscale({&map}, call.error);
     }},
    {"normalize", 0, 0,
     [](QLM_MaterialMapSource& map, const Call& call) { return Maps().NormalizeImageMaps({&map}, call.error); }},
    {"clear", 0, 1, ClearMap},
    {"export", 1, 3, ExportMap},
    {"export-layer", 1, 1,
     [](QLM_MaterialMapSource& map, const Call& call) {
         return Maps().ExportMapFromCurrentLayer(&map, call.WritePath(0), call.error);
     }},
};

} // namespace

bool QLM_RunMapStatement(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    if (words[1] == "create" && (words.size() == 5 || words.size() == 8)) return CreateMap({state, words, error});
    for (const MapVerb& verb : mapVerbs) {
        if (words[1] != verb.name || words.size() < verb.minimumWords + 3 || words.size() > verb.maximumWords + 3)
            continue;
        QLM_MaterialMapSource* map = QLM_FindScriptMap(words[2], error);
        return map && verb.run(*map, {state, words, error});
    }
    error = "map takes: create NAME W H [R G B], resize NAME W H, assign NAME MATERIAL CHANNEL, import NAME PATH, load "
            "NAME PATH, invert NAME, grey NAME, normalize NAME, clear NAME [alt], export NAME PATH [mask PATH], "
            "export-layer NAME PATH";
    return false;
}

void QLM_ReportLayers(FILE* out) {
    const auto hashOf = [](QLM_ImageMap& map) {
        const uint8_t* pixels = map.GetPixels();
        return pixels ? QLM_Hash(pixels, map.GetByteCount()) : QLM_HashStart;
    };
    for (QLM_MapLayer* layer : Layers().GetLayers()) {
        std::string blend;
        QLM_MapLayer::GetBlendName(layer->BlendType, blend);
        QLM_JSONLine(out)
            .Text("layer", layer->GetName())
            .Text("blend", blend)
            .Number("opacity", layer->Strength)
            .Flag("hidden", layer->IsHidden())
            .Flag("locked", layer->IsLocked());
        for (QLM_MaterialMapSource* map : Maps().GetMaps()) {
            QLM_MaterialMapSource* member = map->HasLayerData() ? map->GetLayerData(layer, false) : nullptr;
            if (!member) continue;
            QLM_JSONLine(out)
                .Text("layer", layer->GetName())
                .Text("map", map->GetName())
                .Hash("hash", hashOf(*member))
                .Hash("mask_hash", hashOf(member->Mask));
        }
    }
}

void QLM_AddLayerStatements(QLM_ScriptTable& table) { table["layer"] = {1, 3, Layer}; }
