#include "Core/Logging/QLM_RaiseError.h"
#include "Core/TextStream/QLM_CustomProperty.h"
#include "Core/TextStream/QLM_TextStream.h"

#include <utility>

QLM_CustomPropertyContainer::~QLM_CustomPropertyContainer() {
    for (const auto& [key, property] : properties) delete static_cast<QLM_CustomProperty*>(property);
}

void QLM_CustomPropertyContainer::CopyPropertiesFrom(const QLM_CustomPropertyContainer& source) {
    if (this == &source) return;
    // One lock at a time: two containers may be copied crosswise.
    std::map<std::string, QLM_SafePtr<QLM_CustomProperty>> copies;
    {
        ThreadLockerScope scope(&source.lock);
        for (const auto& [key, property] : source.properties) {
            QLM_SafePtr<QLM_CustomProperty> copy = new QLM_CustomProperty;
            copy->name = key;
            copy->CopyFrom(*property);
            copies[key] = copy;
        }
    }
    {
        ThreadLockerScope scope(&lock);
        properties.swap(copies);
    }
    for (const auto& [key, property] : copies) delete static_cast<QLM_CustomProperty*>(property);
}

QLM_CustomProperty* QLM_CustomPropertyContainer::Find(const std::string& key) const {
    const auto found = properties.find(key);
    return found == properties.end() ? nullptr : static_cast<QLM_CustomProperty*>(found->second);
}

QLM_CustomProperty& QLM_CustomPropertyContainer::FindOrCreate(const std::string& key, int type, uint32_t flags) {
    QLM_CustomProperty* property = Find(key);
    if (!property) {
        property = new QLM_CustomProperty;
        property->name = key;
        properties[key] = property;
    }
    property->type = type;
    if (type != QLM_CustomProperty::FloatArray) property->TakeFloatArray(nullptr, 0);
    if (flags & ResetFlags) property->flags = 0;
    else property->flags |= flags;
    return *property;
}

void QLM_CustomPropertyContainer::SetBool(const std::string& key, bool value, uint32_t flags) {
    ThreadLockerScope scope(&lock);
    FindOrCreate(key, QLM_CustomProperty::Bool, flags).boolValue = value;
}

void QLM_CustomPropertyContainer::SetInt(const std::string& key, int32_t value, uint32_t flags) {
    ThreadLockerScope scope(&lock);
    FindOrCreate(key, QLM_CustomProperty::Int, flags).intValue = value;
}

void QLM_CustomPropertyContainer::SetFloat(const std::string& key, float value, uint32_t flags) {
    ThreadLockerScope scope(&lock);
    FindOrCreate(key, QLM_CustomProperty::Float, flags).floatValue = value;
}

void QLM_CustomPropertyContainer::SetPointer(const std::string& key, void* value, uint32_t flags) {
    ThreadLockerScope scope(&lock);
    FindOrCreate(key, QLM_CustomProperty::Pointer, flags).pointerValue = value;
}

void QLM_CustomPropertyContainer::SetFloatArray(const std::string& key, float* values, int32_t count, uint32_t flags) {
    ThreadLockerScope scope(&lock);
    FindOrCreate(key, QLM_CustomProperty::FloatArray, flags).TakeFloatArray(values, count);
}

void QLM_CustomPropertyContainer::SetString(const std::string& key, const std::string& value, uint32_t flags) {
    if (key.empty()) return;
    ThreadLockerScope scope(&lock);
    FindOrCreate(key, QLM_CustomProperty::String, flags).stringValue = value;
}

bool QLM_CustomPropertyContainer::GetBool(const std::string& key) const {
    ThreadLockerScope scope(&lock);
    const QLM_CustomProperty* property = Find(key);
    return property && property->boolValue;
}

int32_t QLM_CustomPropertyContainer::GetInt(const std::string& key) const {
    ThreadLockerScope scope(&lock);
    const QLM_CustomProperty* property = Find(key);
    return property ? property->intValue : 0;
}

float QLM_CustomPropertyContainer::GetFloat(const std::string& key) const {
    ThreadLockerScope scope(&lock);
    const QLM_CustomProperty* property = Find(key);
    return property ? property->floatValue : 0.0f;
}

void* QLM_CustomPropertyContainer::GetPointer(const std::string& key) const {
    ThreadLockerScope scope(&lock);
    const QLM_CustomProperty* property = Find(key);
    return property ? property->pointerValue : nullptr;
}

std::string QLM_CustomPropertyContainer::GetString(const std::string& key) const {
    ThreadLockerScope scope(&lock);
    const QLM_CustomProperty* property = Find(key);
    return property ? property->stringValue : std::string();
}

float* QLM_CustomPropertyContainer::GetFloatArray(const std::string& key, int32_t& countOut) const {
    ThreadLockerScope scope(&lock);
    const QLM_CustomProperty* property = Find(key);
    countOut = property ? property->floatArrayCount : 0;
    return property ? property->floatArray : nullptr;
}

bool QLM_CustomPropertyContainer::HasProperty(const std::string& key) const {
    ThreadLockerScope scope(&lock);
    return Find(key) != nullptr;
}

void QLM_CustomPropertyContainer::RemoveProperty(const std::string& key) {
    ThreadLockerScope scope(&lock);
    delete Find(key);
    properties.erase(key);
}

void QLM_CustomPropertyContainer::RemovePropertiesWithFlag(uint32_t bits) {
    ThreadLockerScope scope(&lock);
    for (auto it = properties.begin(); it != properties.end();) {
        QLM_CustomProperty* property = it->second;
        if (property->flags & bits) {
            delete property;
            it = properties.erase(it);
        } else {
            ++it;
        }
    }
}

bool QLM_CustomPropertyContainer::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (GetBool("excludeFromSaving")) return false;
    QLM_BaseClassA::SaveToStream_Text(stream, writeBlock);
    ThreadLockerScope scope(&lock);
    for (const auto& [key, property] : properties)
        if (property->flags & Saved) property->SaveToStream_Text(stream, true);
    return true;
}

bool QLM_CustomPropertyContainer::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                                      const std::string& value) {
    TextCommand command(key, value);
    if (!command.Is("property")) return false;
    QLM_Owned<QLM_CustomProperty> property(new QLM_CustomProperty);
    property->name = value;
    property->flags = Saved;
    // A damaged float array costs its contents, not the item that bears it.
    property->LoadFromStream_Text(stream, 0);
    // One without a type that files can hold must not come back to them.
    if (property->type == QLM_CustomProperty::Unknown || property->type == QLM_CustomProperty::Pointer)
        property->flags = 0;
    if (value.empty()) return true;
    ThreadLockerScope scope(&lock);
    delete Find(value);
    properties[value] = property.Release();
    return true;
}
