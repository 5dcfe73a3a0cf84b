#include "Core/OS/QLM_String.h"

#include "Core/OS/QLM_Memory.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t GuardSize = 10;
constexpr size_t BlockSize = GuardSize + QLM_String::Capacity + GuardSize;
constexpr size_t PoolStep = 100;
constexpr uint8_t Guard[GuardSize] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};

// Never destroyed: strings in other statics outlive it otherwise.
QLM_String_Pool& Pool() {
    static QLM_String_Pool& pool = *new QLM_String_Pool;
    return pool;
}

uint8_t* MakeBlock() { return static_cast<uint8_t*>(QLM_Malloc(BlockSize, false)); }

/// Where a text has to end so that it fits and no UTF-8 sequence is broken: half a sequence makes a toolkit refuse
/// the whole text.
size_t FittingLength(std::string_view text) {
    constexpr size_t Most = QLM_String::Capacity - 1;
    if (text.size() <= Most) return text.size();
    size_t start = Most;
    while (start > Most - 4 && (text[start] & 0xC0) == 0x80) --start;
    return (text[start] & 0xC0) == 0x80 ? Most : start;
}

} // namespace

QLM_String_Pool::QLM_String_Pool() {
    free.reserve(limit);
    while (free.size() < limit) free.push_back(MakeBlock());
}

QLM_String_Pool::~QLM_String_Pool() {
    for (uint8_t* block : free) QLM_Free(block);
}

uint8_t* QLM_String_Pool::Take() {
    ThreadLockerScope scope(this);
    uint8_t* block = free.back();
    free.pop_back();
    if (free.empty()) {
        limit += PoolStep;
        free.reserve(limit);
        while (free.size() < PoolStep) free.push_back(MakeBlock());
    }
    return block;
}

void QLM_String_Pool::Give(uint8_t* block) {
    ThreadLockerScope scope(this);
    if (free.size() < limit) free.push_back(block);
    else QLM_Free(block);
}

QLM_String::QLM_String() : block(Pool().Take()), text(reinterpret_cast<char*>(block + GuardSize)) {
    std::memcpy(block, Guard, GuardSize);
    std::memset(text, 0, Capacity);
    std::memcpy(block + GuardSize + Capacity, Guard, GuardSize);
}

QLM_String::QLM_String(const char* source) : QLM_String() {
    if (source) Assign(source);
}
QLM_String::QLM_String(const std::string& source) : QLM_String() { Assign(source); }
QLM_String::QLM_String(const QLM_String& other) : QLM_String() { Assign(other.text); }

QLM_String& QLM_String::operator=(const QLM_String& other) {
    if (this != &other) Assign(other.text);
    return *this;
}

QLM_String::~QLM_String() { Pool().Give(block); }

void QLM_String::Assign(std::string_view source) {
    const size_t length = FittingLength(source);
    std::memmove(text, source.data(), length); // may be a part of this very text
    text[length] = 0;
}

void QLM_String::CopyToBuffer(char* buffer, size_t size) const {
    if (size == 0) return;
    const size_t length = std::min(Length(), size - 1);
    std::memcpy(buffer, text, length);
    buffer[length] = 0;
}

size_t QLM_String::Length() const { return std::strlen(text); }

bool QLM_String::GuardsIntact() const {
    return std::memcmp(block, Guard, GuardSize) == 0 && std::memcmp(block + GuardSize + Capacity, Guard, GuardSize) == 0;
}

bool QLM_String::operator==(const QLM_String& other) const { return std::strcmp(text, other.text) == 0; }
