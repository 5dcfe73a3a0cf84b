#pragma once
// The fixed string of messages and logging: 999 characters from a pool, no heap in steady state.

#include "Core/Objects/ThreadLocker.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Free blocks of 1020 bytes: ten guard bytes (1 to 10), 1000 bytes of text, ten guard bytes. Any thread.
class QLM_String_Pool : public ThreadLocker {
  public:
    QLM_String_Pool();
    ~QLM_String_Pool() override;
    uint8_t* Take();
    void Give(uint8_t* block);

  private:
    std::vector<uint8_t*> free;
    size_t limit = 100;
};

/// A zero-terminated text of at most 999 characters; longer texts are cut.
class QLM_String {
  public:
    static constexpr size_t Capacity = 1000;
    QLM_String();
    QLM_String(const char* text);
    QLM_String(const std::string& text);
    QLM_String(const QLM_String& other);
    QLM_String& operator=(const QLM_String& other);
    ~QLM_String();

    void Assign(std::string_view text);
    /// Copies at most size - 1 characters and terminates.
    void CopyToBuffer(char* buffer, size_t size) const;
    size_t Length() const;
    const char* c_str() const { return text; }
    bool GuardsIntact() const;
    bool operator==(const QLM_String& other) const;

  private:
    uint8_t* block;
    char* text;
};
