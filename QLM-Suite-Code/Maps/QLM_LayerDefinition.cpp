#include "Maps/QLM_LayerDefinition.h"

#include "Core/TextStream/QLM_TextStream.h"

#include <algorithm>

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
        command.ReadFloat(Strength);
        Strength = std::clamp(Strength, MinStrength, MaxStrength);
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
    if (command.Is("LayerDefinition")) loadFailed |= !LoadFromStream_Text(stream, 0);
    return command.Handled();
}
