#pragma once
// One named, typed value of the property bag.

#include "Core/Objects/QLM_BaseClass.h"

/// A property of one of six types; saved as a "property" block. Owned by its container.
class QLM_CustomProperty : public virtual QLM_BaseClassA {
  public:
    enum Type : int32_t { Unknown = 0, Bool = 1, Int = 2, Float = 3, Pointer = 4, FloatArray = 5, String = 6 };

    QLM_CustomProperty() = default;
    ~QLM_CustomProperty() override;

    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    /// Takes over type, flags, values, a copy of the array and the string.
    void CopyFrom(const QLM_CustomProperty& source);
    /// Frees the old array and takes over `values` (from QLM_Malloc).
    void TakeFloatArray(float* values, int32_t count);

    std::string name;
    int32_t type = Unknown;
    uint32_t flags = 0;
    bool boolValue = false;
    int32_t intValue = 0;
    float floatValue = 0.0f;
    void* pointerValue = nullptr;
    float* floatArray = nullptr;
    int32_t floatArrayCount = 0;
    std::string stringValue;
};

/// The type's name in files, "UNKNOWN" outside 1..6. Any thread.
const char* QLM_PropertyTypeName(int32_t type);
/// The number of a type name, 0 when unknown. Any thread.
int32_t QLM_PropertyTypeFromName(const std::string& name);
