#include "Tools/QLM_Parameter.h"

#include "Tools/QLM_Tool.h"

#include <cmath>
#include <cstdlib>

QLM_Parameter::QLM_Parameter(QLM_ParameterType typeIn, const char* label, const char* help, void* value)
    : Type(typeIn), Value(value) {
    SetNameText(label);
    SetHintText(help);
}

QLM_Parameter::~QLM_Parameter() {
    for (QLM_Parameter* child : Children) delete child;
}

std::string QLM_Parameter::GetValueText() const {
    switch (Type) {
    case QLM_ParameterType::Float:
        return QLM_FormatText("%.8f", *static_cast<float*>(Value));
    case QLM_ParameterType::Bool:
        return *static_cast<bool*>(Value) ? "1" : "0";
    case QLM_ParameterType::Radio:
    case QLM_ParameterType::Choice:
        return QLM_FormatText("%d", *static_cast<int32_t*>(Value));
    case QLM_ParameterType::BoolGroup: {
        std::string text;
        for (const QLM_Parameter* child : Children) text += child->GetValueText() + " ";
        return text;
    }
    default:
        return {};
    }
}

namespace {

bool ParseInt(const std::string& text, int32_t& out) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != 0 || value < -1000000 || value > 1000000) return false;
    out = static_cast<int32_t>(value);
    return true;
}

bool ParseBool(const std::string& text, bool& out) {
    if (text != "on" && text != "off" && text != "1" && text != "0") return false;
    out = text == "on" || text == "1";
    return true;
}

/// The child that a label or a number names, -1 for none. `byID`: the number is the child's ID, else its place.
int FindChoice(const QLM_List<QLM_Parameter*>& children, const std::string& text, bool byID) {
    for (int i = 0; i < children.Count(); ++i)
        if (text == children[i]->GetName()) return i;
    int32_t number = 0;
    if (!ParseInt(text, number)) return -1;
    if (!byID) return number >= 0 && number < children.Count() ? number : -1;
    for (int i = 0; i < children.Count(); ++i)
        if (children[i]->ID == number) return i;
    return -1;
}

bool SetNumber(QLM_Parameter& parameter, const std::string& text, std::string& error) {
    char* end = nullptr;
    const float value = std::strtof(text.c_str(), &end);
    if (text.empty() || *end != 0 || !std::isfinite(value)) {
        error = QLM_FormatText("\"%s\" is no number", text);
        return false;
    }
    if (value < parameter.Minimum || value > parameter.Maximum) {
        error = QLM_FormatText("%s lies outside %g to %g", text, parameter.Minimum, parameter.Maximum);
        return false;
    }
    *static_cast<float*>(parameter.Value) = value;
    return true;
}

/// A switch, or a radio, which can only be switched on.
bool SetSwitch(QLM_Parameter& parameter, const std::string& text, std::string& error) {
    const bool isRadio = parameter.Type == QLM_ParameterType::Radio;
    bool on = false;
    if (!ParseBool(text, on) || (isRadio && !on)) {
        error = QLM_FormatText("\"%s\" is not %s", text, isRadio ? "on" : "on or off");
        return false;
    }
    if (isRadio) *static_cast<int32_t*>(parameter.Value) = parameter.ID;
    else *static_cast<bool*>(parameter.Value) = on;
    return true;
}

bool SetChoice(QLM_Parameter& parameter, const std::string& text, std::string& error) {
    const bool isRadioGroup = parameter.Type == QLM_ParameterType::RadioGroup;
    const int child = FindChoice(parameter.Children, text, isRadioGroup);
    if (child < 0) {
        error = QLM_FormatText("\"%s\" is none of the choices of \"%s\"", text, parameter.GetName());
        return false;
    }
    parameter.SelectedChild = child;
    QLM_Parameter* chosen = parameter.Children[child];
    if (isRadioGroup) *static_cast<int32_t*>(chosen->Value) = chosen->ID;
    else *static_cast<int32_t*>(parameter.Value) = child;
    return true;
}

/// One switch a child, separated by blanks.
bool SetSwitches(QLM_Parameter& parameter, const std::string& text, std::string& error) {
    std::vector<bool> values;
    for (size_t begin = text.find_first_not_of(' '); begin != std::string::npos;
         begin = text.find_first_not_of(' ', begin)) {
        const size_t end = std::min(text.find(' ', begin), text.size());
        bool on = false;
        if (!ParseBool(text.substr(begin, end - begin), on)) break;
        values.push_back(on);
        begin = end;
    }
    if (values.size() != parameter.Children.size()) {
        error = QLM_FormatText("\"%s\" takes %d switches", parameter.GetName(), parameter.Children.Count());
        return false;
    }
    for (size_t i = 0; i < values.size(); ++i) *static_cast<bool*>(parameter.Children[i]->Value) = values[i];
    return true;
}

} // namespace

bool QLM_Parameter::SetValueFromText(const std::string& text, std::string& error) {
    bool done = false;
    switch (Type) {
    case QLM_ParameterType::Float:
        done = SetNumber(*this, text, error);
        break;
    case QLM_ParameterType::Bool:
    case QLM_ParameterType::Radio:
        done = SetSwitch(*this, text, error);
        break;
    case QLM_ParameterType::RadioGroup:
    case QLM_ParameterType::Choice:
        done = SetChoice(*this, text, error);
        break;
    case QLM_ParameterType::BoolGroup:
        done = SetSwitches(*this, text, error);
        break;
    case QLM_ParameterType::Separator:
        error = "a separator has no value";
        break;
    }
    if (done && OwnerTool) OwnerTool->OnParameterChanged(this);
    return done;
}
