#include "Maps/QLM_LayerDefinition.h"

#include "Core/TextStream/QLM_TextStream.h"

#include <algorithm>
#include <cmath>

void QLM_LayerDefinition::Reset() {
    Strength = 1.0f;
    state = Normal;
    OnChanged();
}

void QLM_LayerDefinition::SaveLayerDefinition(FILE* stream) {
    QLM_WriteInt(stream, "State", state);
    QLM_WriteFloat(stream, "Strength", Strength);
}

bool QLM_LayerDefinition::ConsiderLayerDefinition(FILE* stream, const std::string& key, const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("State")) {
        int32_t read = Normal;
        command.ReadInt(read);
        if (read >= Normal && read <= Hidden) state = read;
    }
    if (command.Is("Strength")) {
        float read = 0.0f;
        command.ReadFloat(read);
        if (std::isfinite(read)) Strength = std::clamp(read, MinStrength, MaxStrength);
    }
    bool on = false;
    if (command.Is("Locked")) {
        command.ReadBool(on);
        if (on) state = Locked;
    }
    if (command.Is("Hidden")) {
        command.ReadBool(on);
        if (on) state = Hidden;
    }
    if (!insideDefinition && command.Is("LayerDefinition")) {
        insideDefinition = true;
        loadFailed = !LoadFromStream_Text(stream, 0);
        insideDefinition = false;
    }
    return command.Handled();
}
