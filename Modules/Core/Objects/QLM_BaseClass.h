#pragma once
// The roots of named, identified, persistent things.

#include "Core/Objects/QLM_List.h"
#include "Core/Objects/ThreadLocker.h"
#include "Core/OS/QLM_Format.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

class QLM_BaseClass;
class QLM_CustomProperty;

/// Every item with a process-wide 32-bit ID (from 70000 upward, never reused), a name and a hint.
/// Construction and destruction on any thread; the rest on the owner's thread.
class QLM_BaseClassA : public virtual QLM_RootClass {
  public:
    QLM_BaseClassA();
    QLM_BaseClassA(const QLM_BaseClassA&) = delete;
    QLM_BaseClassA& operator=(const QLM_BaseClassA&) = delete;

    virtual bool IsReadOnly() const { return readOnly; }
    virtual void SetReadOnly(bool on) { readOnly = on; }
    ~QLM_BaseClassA() override;
    /// Writes the item's lines at the present text depth; false when the item asks to be left out.
    virtual bool SaveToStream_Text(FILE* stream, bool writeBlock = true);
    /// Offers one line to the item; true when the key was consumed. A failed record sets `loadFailed`.
    virtual bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value);
    /// Reads one "{ ... }" block; flags bit 0 puts the stream back afterwards. False when a record failed.
    virtual bool LoadFromStream_Text(FILE* stream, uint32_t flags);
    virtual uint64_t GetDataSizeInBytes() const { return 0; }
    virtual bool IsCollapsed() const { return collapsed; }
    virtual void SetCollapsed(bool on) { collapsed = on; }
    virtual const char* GetName() const { return name.c_str(); }
    /// Takes `text` with each of ":" "\\" "/" "%" replaced by "_".
    virtual void SetNameText(const std::string& text);
    virtual void SetHintText(const std::string& text) { hint = text; }
    virtual const char* GetHint() const { return hint.c_str(); }
    virtual void Enable() { enabled = true; }
    virtual void Disable() { enabled = false; }
    virtual bool IsEnabled() const { return enabled; }
    virtual void SetEnabled(bool on) { enabled = on; }
    virtual int GetChildCount() const { return 0; }
    virtual QLM_SafePtr<QLM_BaseClass> GetChild(int index) const;

    /// Formats and sets the name; a null format leaves it unchanged.
    template <class... A> void SetName(const char* format, const A&... args) {
        if (format) SetNameText(QLM_FormatText(format, args...));
    }
    template <class... A> void SetHint(const char* format, const A&... args) {
        if (format) SetHintText(QLM_FormatText(format, args...));
    }

    uint32_t GetID() const { return id; }
    bool IsMarked() const { return marked; }
    void SetMarked(bool on) { marked = on; }
    bool IsCurrent() const { return current; }
    void SetCurrentFlag(bool on) { current = on; }
    const char* GetTreePath() const { return treePath; }
    void SetTreePath(const char* path);
    /// Enters the item in the ID map if it isn't there. Any thread.
    void ReAddToIDMap();

    bool loadFailed = false; ///< set by a handler whose record failed; ends the read of this item's block

  protected:
    /// For kinds of items whose names may hold more than others'.
    void KeepName(std::string text) { name = std::move(text); }

  private:
    bool readOnly = false;
    char* treePath = nullptr;
    bool marked = false;
    bool enabled = true;
    std::string name;
    std::string hint;
    uint32_t id = 0;
    bool registeredInIDMap = false;
    bool collapsed = true;
    bool current = false;
};

/// A text as an item bears it as its name: the `unfit` characters become "_". Any thread.
std::string QLM_CleanName(std::string text, const char* unfit = ":\\/%");

/// The key-value bag of every QLM_BaseClass. Single operations are safe from any thread.
/// Flags of the setters: bit 0 (1) resets the property's flags to 0, else the bits are OR-ed in;
/// 2 = saved in files, 4 = temporary.
class QLM_CustomPropertyContainer : public virtual QLM_BaseClassA {
  public:
    enum : uint32_t { ResetFlags = 1, Saved = 2, Temporary = 4 };

    QLM_CustomPropertyContainer() = default;
    ~QLM_CustomPropertyContainer() override;
    /// Clears, then deep-copies every property of the source; assignment to itself changes nothing.
    void CopyPropertiesFrom(const QLM_CustomPropertyContainer& source);

    void SetBool(const std::string& key, bool value, uint32_t flags = 0);
    void SetInt(const std::string& key, int32_t value, uint32_t flags = 0);
    void SetFloat(const std::string& key, float value, uint32_t flags = 0);
    /// The property owns nothing behind the pointer.
    void SetPointer(const std::string& key, void* value, uint32_t flags = 0);
    /// Takes over `values` (from QLM_Malloc), `count` in floats.
    void SetFloatArray(const std::string& key, float* values, int32_t count, uint32_t flags = 0);
    /// An empty key does nothing.
    void SetString(const std::string& key, const std::string& value, uint32_t flags = 0);

    bool GetBool(const std::string& key) const;
    int32_t GetInt(const std::string& key) const;
    float GetFloat(const std::string& key) const;
    void* GetPointer(const std::string& key) const;
    std::string GetString(const std::string& key) const;
    float* GetFloatArray(const std::string& key, int32_t& countOut) const;

    bool HasProperty(const std::string& key) const;
    void RemoveProperty(const std::string& key);
    /// Deletes every property that shares a flag bit with `bits`.
    void RemovePropertiesWithFlag(uint32_t bits);

    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

  private:
    QLM_CustomProperty* Find(const std::string& key) const;
    QLM_CustomProperty& FindOrCreate(const std::string& key, int type, uint32_t flags);
    std::map<std::string, QLM_SafePtr<QLM_CustomProperty>> properties;
    mutable ThreadLocker lock;
};

/// Base of every persistent engine class.
class QLM_BaseClass : public virtual QLM_BaseClassA, public virtual QLM_CustomPropertyContainer {
  public:
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override {
        return QLM_CustomPropertyContainer::SaveToStream_Text(stream, writeBlock);
    }
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override {
        return QLM_CustomPropertyContainer::LoadFromStream_Text_ConsiderCommand(stream, key, value);
    }
};

/// Things that a user sees and can tag for export.
class QLM_UserAsset : public virtual QLM_BaseClass {
  public:
    QLM_UserAsset();
    ~QLM_UserAsset() override;
};

/// Resolves an ID under the ID lock; null for 0, an unknown ID or an item that is no QLM_BaseClass. Any thread.
QLM_BaseClass* QLM_FindBaseClassByID(uint32_t id);
template <class T> T* QLM_FindByID(uint32_t id) { return dynamic_cast<T*>(QLM_FindBaseClassByID(id)); }
/// Replaces `list` by every live user asset in ID order. Any thread.
void QLM_FindUserAssets(QLM_List<QLM_BaseClass*>& list);

/// A weak set of IDs with its lock: members that were destroyed no longer resolve.
class QLM_BaseClassByIDMap : public std::map<uint32_t, uint32_t>, public ThreadLocker {
  public:
    void AddMember(uint32_t memberID);
    void RemoveMember(uint32_t memberID);
    std::vector<uint32_t> GetMembers();
};
