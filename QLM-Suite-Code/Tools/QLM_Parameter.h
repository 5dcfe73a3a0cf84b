#pragma once
// A described setting of a tool.

#include "Core/Objects/QLM_BaseClass.h"

enum class QLM_ParameterType : uint32_t {
    Float = 1,
    Bool = 2,
    Radio = 4,
    RadioGroup = 6,
    BoolGroup = 7,
    Choice = 10,
    Separator = 12
};

class QLM_Tool;

/// Points at the variable it edits (float, bool, or int32_t for radios and choices), owned by the tool or a manager;
/// null for groups and separators. Owns its children: the members of a group, the labels of a choice.
class QLM_Parameter : public virtual QLM_BaseClass {
  public:
    QLM_Parameter(QLM_ParameterType type, const char* label, const char* help, void* value);
    ~QLM_Parameter() override;

    /// The value as a preset stores it; empty for groups of radios and separators. A choice stores its index.
    std::string GetValueText() const;
    /// Sets from a text: a number between minimum and maximum, "on"/"off"/"1"/"0", a choice by label or number.
    /// False with a reason for anything else; nothing changes then. The owner tool is told of a change.
    bool SetValueFromText(const std::string& text, std::string& error);
    float GetFloat() const { return *static_cast<float*>(Value); }

    QLM_ParameterType Type;
    void* Value;
    float Minimum = 0.0f, Maximum = 1.0f;
    QLM_List<QLM_Parameter*> Children;
    int32_t SelectedChild = -1;
    QLM_Tool* OwnerTool = nullptr;
    bool IsPercent = false;
    int32_t ID = -1;
};
