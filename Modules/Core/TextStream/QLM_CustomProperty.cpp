#include "Core/TextStream/QLM_CustomProperty.h"

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/TextStream/QLM_TextStream.h"

#include <cstring>

namespace {

constexpr const char* TypeNames[] = {"unknown", "bool", "int", "float", "pointer", "float_array", "string"};

/// From a type's name in files to its number.
class StringToTypeMap : public std::map<std::string, int32_t>, public ThreadLocker {
  public:
    StringToTypeMap() {
        for (int32_t i = 0; i < static_cast<int32_t>(std::size(TypeNames)); ++i) emplace(TypeNames[i], i);
    }
};

StringToTypeMap& GetStringToTypeMap() {
    static StringToTypeMap& map = *new StringToTypeMap;
    return map;
}

bool CanBeSaved(int32_t type) {
    return type >= QLM_CustomProperty::Bool && type <= QLM_CustomProperty::String && type != QLM_CustomProperty::Pointer;
}

} // namespace

const char* QLM_PropertyTypeName(int32_t type) {
    return type >= QLM_CustomProperty::Bool && type <= QLM_CustomProperty::String ? TypeNames[type] : "UNKNOWN";
}

int32_t QLM_PropertyTypeFromName(const std::string& name) {
    StringToTypeMap& map = GetStringToTypeMap();
    ThreadLockerScope scope(&map);
    const auto found = map.find(name);
    return found == map.end() ? 0 : found->second;
}

QLM_CustomProperty::~QLM_CustomProperty() { QLM_Free(floatArray); }

void QLM_CustomProperty::TakeFloatArray(float* values, int32_t count) {
    if (values != floatArray) QLM_Free(floatArray);
    floatArray = values;
    floatArrayCount = values ? count : 0;
}

void QLM_CustomProperty::CopyFrom(const QLM_CustomProperty& source) {
    if (this == &source) return;
    type = source.type;
    flags = source.flags;
    boolValue = source.boolValue;
    intValue = source.intValue;
    floatValue = source.floatValue;
    pointerValue = source.pointerValue;
    stringValue = source.stringValue;
    const size_t bytes = static_cast<size_t>(source.floatArrayCount) * sizeof(float);
    float* copy = static_cast<float*>(QLM_Malloc(bytes, false));
    if (copy) std::memcpy(copy, source.floatArray, bytes);
    TakeFloatArray(copy, source.floatArrayCount);
}

bool QLM_CustomProperty::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (!CanBeSaved(type)) QLM_RaiseError("Property type cannot be saved in files");
    const TStartTextFileBlock block("property", name.c_str(), stream, writeBlock);
    QLM_WriteText(stream, "propertyType", QLM_PropertyTypeName(type));
    switch (type) {
    case Bool: QLM_WriteInt(stream, "value", boolValue); break;
    case Int: QLM_WriteInt(stream, "value", intValue); break;
    case Float: QLM_WriteFloat(stream, "value", floatValue); break;
    case String: QLM_WriteText(stream, "value", stringValue); break;
    default:
        QLM_WriteCompressedBlock(stream, "data", floatArray, static_cast<size_t>(floatArrayCount) * sizeof(float));
    }
    return true;
}

bool QLM_CustomProperty::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                             const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("propertyType")) {
        type = QLM_PropertyTypeFromName(value);
    } else if (type == FloatArray && command.Is("data")) {
        std::vector<uint8_t> bytes;
        TakeFloatArray(nullptr, 0);
        if (QLM_ReadCompressedBlock(stream, bytes)) {
            const size_t count = bytes.size() / sizeof(float);
            float* values = static_cast<float*>(QLM_Malloc(count * sizeof(float), false));
            if (values) std::memcpy(values, bytes.data(), count * sizeof(float));
            TakeFloatArray(values, static_cast<int32_t>(count));
        } else {
            loadFailed = true;
        }
    } else if (command.Is("value")) {
        if (type == Bool) command.ReadBool(boolValue);
        else if (type == Int) command.ReadInt(intValue);
        else if (type == Float) command.ReadFloat(floatValue);
        else if (type == String) command.ReadString(stringValue);
    }
    return command.Handled();
}
