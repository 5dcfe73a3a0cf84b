// Statements of pointer, wheel and keyboard.

#include "Core/OS/QLM_OS.h"
#include "Core/OS/QLM_Tablet.h"
#include "Engine/QLM_Engine.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Script/QLM_ScriptState.h"

namespace {

struct PointerWords {
    float x = 0, y = 0;
    QLM_KeyModifiers modifiers;
    QLM_Engine::Button button = QLM_Engine::Button::Left;
};

/// X Y, then in any order a pressure, modifiers and a button.
bool ParsePointer(const QLM_ScriptWords& words, PointerWords& out, std::string& error) {
    double x, y;
    if (!QLM_ParseNumber(words[1], x) || !QLM_ParseNumber(words[2], y)) {
        error = "\"" + words[1] + " " + words[2] + "\" is no place on the canvas";
        return false;
    }
    out.x = static_cast<float>(x);
    out.y = static_cast<float>(y);
    for (size_t i = 3; i < words.size(); ++i) {
        double pressure;
        if (words[i] == "shift") out.modifiers.shift = true;
        else if (words[i] == "ctrl") out.modifiers.control = true;
        else if (words[i] == "alt") out.modifiers.alt = true;
        else if (words[i] == "left") out.button = QLM_Engine::Button::Left;
        else if (words[i] == "middle") out.button = QLM_Engine::Button::Middle;
        else if (words[i] == "right") out.button = QLM_Engine::Button::Right;
        else if (QLM_ParseNumber(words[i], pressure) && pressure >= 0 && pressure <= 1)
            QLM_SetPressure(static_cast<float>(pressure));
        else {
            error =
                "\"" + words[i] + "\" is neither a pressure from 0 to 1 nor shift, ctrl, alt, left, middle or right";
            return false;
        }
    }
    return true;
}

/// Presses; fails where there is no viewport, and where the tool refused with a message. A press that starts no stroke
/// but is taken (an adjustment of the brush) is a press.
bool DoPress(const PointerWords& at, std::string& error) {
    QLM_OS& os = QLM_OS::Get();
    if (os.mouseButtonsDown > 0) {
        error = "a button is down already";
        return false;
    }
    const size_t messages = os.recorded.size();
    if (QLM_GetEngine()->PointerPress(at.button, at.x, at.y, at.modifiers)) return true;
    if (!QLM_GetManagers().GetViewportManager()->GetViewportAt(at.x, at.y))
        error = "there is no viewport at this place";
    else if (os.recorded.size() > messages) error = "the press was refused: " + os.recorded.back().text;
    else return true;
    QLM_GetEngine()->PointerRelease(at.button, at.x, at.y);
    return false;
}

QLM_Engine::Button pressedButton = QLM_Engine::Button::Left;

bool Press(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    PointerWords at;
    QLM_SetPressure(1.0f);
    if (!ParsePointer(words, at, error) || !DoPress(at, error)) return false;
    pressedButton = at.button;
    return true;
}

bool Move(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    PointerWords at;
    if (!ParsePointer(words, at, error)) return false;
    QLM_GetEngine()->PointerMove(at.x, at.y);
    return true;
}

bool Release(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    PointerWords at;
    if (!ParsePointer(words, at, error)) return false;
    if (QLM_OS::Get().mouseButtonsDown == 0) {
        error = "no button is down";
        return false;
    }
    QLM_GetEngine()->PointerRelease(pressedButton, at.x, at.y);
    return true;
}

bool Stroke(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    if (words.size() % 2 == 0) {
        error = "a stroke takes pairs of X and Y";
        return false;
    }
    std::vector<std::pair<float, float>> points;
    for (size_t i = 1; i < words.size(); i += 2) {
        PointerWords at;
        if (!ParsePointer({words[0], words[i], words[i + 1]}, at, error)) return false;
        points.push_back({at.x, at.y});
    }
    QLM_SetPressure(1.0f);
    PointerWords first;
    first.x = points[0].first;
    first.y = points[0].second;
    if (!DoPress(first, error)) return false;
    // Each point is drained before the next comes, as with separate statements.
    for (size_t i = 1; i < points.size(); ++i) {
        QLM_GetEngine()->PointerMove(points[i].first, points[i].second);
        if (!state.Settle(error)) return false;
    }
    QLM_GetEngine()->PointerRelease(QLM_Engine::Button::Left, points.back().first, points.back().second);
    return true;
}

bool Wheel(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    double notches;
    PointerWords at;
    if (!QLM_ParseNumber(words[1], notches)) {
        error = "\"" + words[1] + "\" is no number of notches";
        return false;
    }
    if (!ParsePointer({words[0], words[2], words[3]}, at, error)) return false;
    QLM_GetEngine()->Wheel(static_cast<float>(notches), at.x, at.y);
    return true;
}

bool Key(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    int code;
    if (words[1] == "Escape") code = 27;
    else if (words[1] == "Enter") code = 13;
    else if (words[1] == "Space") code = ' ';
    else if (words[1].size() == 1) code = static_cast<unsigned char>(words[1][0]);
    else {
        error = "a key is Escape, Enter, Space or one character, not \"" + words[1] + "\"";
        return false;
    }
    PointerWords at;
    QLM_ScriptWords modifiers = {words[0], "0", "0"};
    modifiers.insert(modifiers.end(), words.begin() + 2, words.end());
    if (!ParsePointer(modifiers, at, error)) return false;
    QLM_GetEngine()->Key(code, at.modifiers);
    return true;
}

} // namespace

void QLM_AddInputStatements(QLM_ScriptTable& table) {
    table["press"] = {2, 8, Press};
    table["move"] = {2, 3, Move};
    table["release"] = {2, 2, Release};
    table["stroke"] = {2, 100000, Stroke};
    table["wheel"] = {3, 3, Wheel};
    table["key"] = {1, 4, Key};
}
