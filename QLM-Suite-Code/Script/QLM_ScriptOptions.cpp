// Settings and options by their keys.

#include "Engine/QLM_Engine.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Rendering/QLM_CullingManager.h"
#include "Script/QLM_ScriptState.h"
#include "Tools/QLM_ToolManager.h"

namespace {

bool ParseSwitch(const std::string& text, bool& out) {
    if (text == "on" || text == "1" || text == "true") out = true;
    else if (text == "off" || text == "0" || text == "false") out = false;
    else return false;
    return true;
}

struct FloatOption {
    const char* key;
    float* value;
    float minimum, maximum;
};

} // namespace

bool QLM_SetScriptOption(const std::string& key, const std::string& value, std::string& error) {
    QLM_Engine& engine = *QLM_GetEngine();
    QLM_ToolManager& tools = *QLM_GetManagers().GetToolManager();
    QLM_FadeByAngleManager& fade = *QLM_GetManagers().GetFadeByAngleManager();
    // The settings first; an unknown key leaves the reason empty.
    if (engine.SetOption(key, value == "on" ? "1" : value == "off" ? "0" : value, error)) return true;
    if (!error.empty()) return false;
    const std::pair<const char*, bool*> switches[] = {
        {"SetMouseWheelVaryStrength", &engine.wheelFlags.varyStrength},
        {"SetMouseWheelVarySize", &engine.wheelFlags.varySize},
        {"SetMouseWheelVaryDensity", &engine.wheelFlags.varyDensity},
        {"SetMouseWheelVaryHardness", &engine.wheelFlags.varyHardness},
        {"SetMouseWheelNavZoom", &engine.wheelFlags.navZoom},
        {"MirrorX", &tools.mirrorX},
        {"MirrorY", &tools.mirrorY},
        {"LockAlpha", &tools.lockAlpha},
        {"SetAutoPressure", &tools.autoPressure},
        {"doAngleFade", &fade.Enabled},
    };
    for (const auto& [name, target] : switches) {
        if (key != name) continue;
        if (ParseSwitch(value, *target)) return true;
        error = "the option \"" + key + "\" is on or off, not \"" + value + "\"";
        return false;
    }
    const FloatOption floats[] = {
        {"fadeFalloff", &fade.Falloff, 0.0f, 1.0f},
        {"fadeCutoff", &fade.Cutoff, 0.0f, 1.0f},
        {"WeldThreshold", &QLM_UtilityManager::WeldThreshold, 0.0f, 30.0f},
    };
    for (const FloatOption& option : floats) {
        if (key != option.key) continue;
        double number;
        if (QLM_ParseNumber(value, number) && number >= option.minimum && number <= option.maximum) {
            *option.value = static_cast<float>(number);
            return true;
        }
        error = "the option \"" + key + "\" is a number in its range, not \"" + value + "\"";
        return false;
    }
    return QLM_GetManagers().GetIOManager()->SetOption(key, value, error);
}
