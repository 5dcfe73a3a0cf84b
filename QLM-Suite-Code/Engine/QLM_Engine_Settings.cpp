#include "Engine/QLM_Engine.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Messages.h"
#include "Geometry/QLM_UtilityManager.h"

#include <cstdlib>
#include <cstring>
#include <variant>

namespace {

// Readers of all versions split longer lines.
constexpr size_t LineLimit = 255;
constexpr size_t LongestPath = 240;
constexpr uint32_t ThemeCount = 5;

/// A text that names a folder: taken only while the folder exists.
struct Folder {
    std::string QLM_Engine::*member;
};
/// A whole number not below the minimum.
struct Number {
    int32_t QLM_Engine::*member;
    int32_t minimum;
};
/// A share of 0..1.
struct Share {
    float QLM_Engine::*member;
};
/// An exponent of 0..30 that stands outside the engine.
struct Exponent {
    float* value;
};
struct Theme {};
struct SearchPathLines {};

using Field = std::variant<Folder, std::string QLM_Engine::*, bool QLM_Engine::*, Number, Share, Exponent, Theme,
                           SearchPathLines>;

struct Setting {
    const char* key;
    Field field;
};

/// In the order of the file.
const Setting settings[] = {
    {"ImportPath", Folder{&QLM_Engine::importPath}},
    {"ExportPath", Folder{&QLM_Engine::exportPath}},
    {"ImagesPath", Folder{&QLM_Engine::imagesPath}},
    {"ProjectsPath", Folder{&QLM_Engine::projectsPath}},
    {"SearchPath", SearchPathLines{}},
    {"RunCount", Number{&QLM_Engine::runCount, 0}},
    {"doPromptforHotkeyAssignment", &QLM_Engine::doPromptforHotkeyAssignment},
    {"showHoverHints", &QLM_Engine::showHoverHints},
    {"colorTheme", Theme{}},
    {"canToggleLeftPanel", &QLM_Engine::canToggleLeftPanel},
    {"canToggleRightPanel", &QLM_Engine::canToggleRightPanel},
    {"canToggleTopPanel", &QLM_Engine::canToggleTopPanel},
    {"canToggleBottomPanel", &QLM_Engine::canToggleBottomPanel},
    {"ContinuousZoom", &QLM_Engine::continuousZoom},
    {"TabletPressureVariesStrength", &QLM_Engine::tabletPressureVariesStrength},
    {"TabletPressureVariesPseudoSize", &QLM_Engine::tabletPressureVariesPseudoSize},
    {"TabletPressureVariesDensity", &QLM_Engine::tabletPressureVariesDensity},
    {"TabletPressureVariesHardness", &QLM_Engine::tabletPressureVariesHardness},
    {"TabletSensitivity", Share{&QLM_Engine::tabletSensitivity}},
    {"MouseWheelSensitivity", Share{&QLM_Engine::mouseWheelSensitivity}},
    {"TabletCutoff", Share{&QLM_Engine::tabletCutoff}},
    {"Hints", &QLM_Engine::showHints},
    {"UndoLimit", Number{&QLM_Engine::undoLimit, 1}},
    {"LoadDefaultProject", &QLM_Engine::loadDefaultProject},
    {"ttSourcePath", Folder{&QLM_Engine::ttSourcePath}},
    {"ttContentFolder", Folder{&QLM_Engine::ttContentFolder}},
    {"ttPresetFiles", &QLM_Engine::ttPresetFiles},
    {"ttOutputTextures", &QLM_Engine::ttOutputTextures},
    {"UtilityManager()->WeldThreshold", Exponent{&QLM_UtilityManager::WeldThreshold}},
};

bool ParseInteger(const std::string& text, int64_t minimum, int64_t maximum, int64_t& out) {
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != '\0' || value < minimum || value > maximum) return false;
    out = value;
    return true;
}

bool ParseSwitch(const std::string& text, bool& out) {
    if (text != "0" && text != "1" && text != "on" && text != "off") return false;
    out = text == "1" || text == "on";
    return true;
}

/// A number from 0 to `maximum`.
bool ParseFloat(const std::string& text, float maximum, float& out) {
    char* end = nullptr;
    const float parsed = std::strtof(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || !(parsed >= 0.0f && parsed <= maximum)) return false;
    out = parsed;
    return true;
}

/// Puts one value into its field; false, with nothing changed, for a value that the field can't take.
struct Reader {
    QLM_Engine& engine;
    const std::string& value;

    bool operator()(Folder folder) const {
        if (!QLM_FolderExists(value)) return false;
        engine.*folder.member = QLM_NormalizeFolder(QLM_ResolveCase(value));
        return true;
    }
    bool operator()(std::string QLM_Engine::*member) const {
        engine.*member = value;
        return true;
    }
    bool operator()(bool QLM_Engine::*member) const { return ParseSwitch(value, engine.*member); }
    bool operator()(Number number) const {
        int64_t parsed = 0;
        if (!ParseInteger(value, number.minimum, INT32_MAX, parsed)) return false;
        engine.*number.member = static_cast<int32_t>(parsed);
        return true;
    }
    bool operator()(Share share) const { return ParseFloat(value, 1.0f, engine.*share.member); }
    bool operator()(Exponent exponent) const { return ParseFloat(value, 30.0f, *exponent.value); }
    bool operator()(Theme) const {
        int64_t parsed = 0;
        if (!ParseInteger(value, 0, ThemeCount - 1, parsed)) return false;
        engine.colorTheme = static_cast<uint32_t>(parsed);
        return true;
    }
    bool operator()(SearchPathLines) const {
        if (!QLM_FolderExists(value)) return false;
        engine.searchPaths.AddPath(QLM_ResolveCase(value));
        return true;
    }
};

struct Writer {
    QLM_Engine& engine;
    FILE* file;
    const char* key;

    void Text(const std::string& text) const {
        const bool fits = text.size() <= LongestPath && std::strlen(key) + 1 + text.size() <= LineLimit;
        if (fits) QLM_PrintToFile(file, "%s\t%s\n", key, text);
    }
    void Integer(int64_t number) const { QLM_PrintToFile(file, "%s\t%d\n", key, number); }

    void operator()(Folder folder) const { Text(engine.*folder.member); }
    void operator()(std::string QLM_Engine::*member) const { Text(engine.*member); }
    void operator()(bool QLM_Engine::*member) const { Integer(engine.*member); }
    void operator()(Number number) const { Integer(engine.*number.member); }
    void operator()(Share share) const { QLM_PrintToFile(file, "%s\t%.6f\n", key, engine.*share.member); }
    void operator()(Exponent exponent) const { QLM_PrintToFile(file, "%s\t%.6f\n", key, *exponent.value); }
    void operator()(Theme) const { Integer(engine.colorTheme); }
    void operator()(SearchPathLines) const {
        for (const QLM_SearchPath* path : engine.searchPaths) Text(path->path);
    }
};

const Setting* FindSetting(const std::string& key) {
    for (const Setting& setting : settings)
        if (QLM_CompareNoCase(setting.key, key) == 0) return &setting;
    return nullptr;
}

bool CopyFileBytes(const std::string& source, const std::string& target) {
    FILE* const in = QLM_fopen(source, "rb");
    if (!in) return false;
    QLM_SafeFileWriter writer(target);
    FILE* const out = writer.GetStream();
    char block[4096];
    while (out) {
        const size_t count = std::fread(block, 1, sizeof block, in);
        if (count == 0) break;
        std::fwrite(block, 1, count, out);
    }
    QLM_fclose(in);
    return out && writer.Commit();
}

} // namespace

void QLM_Engine::LoadSettings() {
    if (!useUserSettings) return;
    QLM_TRACE(1);
    FILE* file = QLM_fopen(settingsPath, "r");
    if (!file) {
        // The settings of the program's predecessor serve as the first ones.
        const char separator = '/';
        const std::string old =
            QLM_FormatText("%s..%cVelmora%cVelmora_v1.ini", configDirectory, separator, separator);
        if (CopyFileBytes(old, settingsPath)) file = QLM_fopen(settingsPath, "r");
    }
    if (file) {
        searchPaths.DeleteAll();
        std::string line, key, value;
        while (QLM_ReadLine(line, LineLimit + 1, file)) {
            QLM_SplitKeyValue(line, key, value);
            if (QLM_CompareNoCase(key, "RecursiveSearchPath") == 0) {
                if (QLM_FolderExists(value)) searchPaths.AddPath(QLM_ResolveCase(value), true);
            } else if (const Setting* setting = FindSetting(key)) {
                std::visit(Reader{*this, value}, setting->field);
            }
        }
        QLM_fclose(file);
        if (shell.settingsChanged) shell.settingsChanged();
    }
    if (runCount == 0) startupMessages.push_back(QLM_GetString(413));
}

void QLM_Engine::SaveSettings() {
    if (!useUserSettings) return;
    QLM_TRACE(1);
    QLM_SafeFileWriter writer(settingsPath);
    if (FILE* file = writer.GetStream()) {
        for (const Setting& setting : settings) std::visit(Writer{*this, file, setting.key}, setting.field);
        if (writer.Commit()) return;
    }
    QLM_OS::Get().PrintMessage(QLM_GetString(1020), settingsPath);
}

bool QLM_Engine::SetOption(const std::string& key, const std::string& value, std::string& error) {
    error.clear();
    const Setting* const setting = FindSetting(key);
    if (!setting) return false;
    if (!std::visit(Reader{*this, value}, setting->field)) {
        error = QLM_FormatText("The setting \"%s\" can't take the value \"%s\".", setting->key, value);
        return false;
    }
    if (shell.settingsChanged) shell.settingsChanged();
    SaveSettings();
    return true;
}

void QLM_Engine::LoadSplashScreenInfoFromFile() {
    splashScreenFileName.clear();
    splashScreenMoreInfo.clear();
    FILE* const file = QLM_fopen(splashScreenInfoPath, "r");
    if (!file) return;
    std::string line, key, value;
    while (QLM_ReadLine(line, LineLimit + 1, file)) {
        QLM_SplitKeyValue(line, key, value);
        if (QLM_CompareNoCase(key, "fileName") == 0) splashScreenFileName = value;
        else if (QLM_CompareNoCase(key, "moreInfoURL") == 0) splashScreenMoreInfo = value;
    }
    QLM_fclose(file);
}
