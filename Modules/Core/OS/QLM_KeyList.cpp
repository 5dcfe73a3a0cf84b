#include "Core/OS/QLM_KeyList.h"

#include "Core/OS/String_Functions.h"

#include <algorithm>
#include <cstdlib>

QLM_KeyList::QLM_KeyList(const std::string& text) {
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find(';', start), text.size());
        const std::string entry = text.substr(start, end - start);
        if (const size_t equals = entry.find('='); equals != entry.npos)
            entries.emplace_back(QLM_Trim(entry.substr(0, equals)), QLM_Trim(entry.substr(equals + 1)));
        start = end + 1;
    }
}

int32_t QLM_KeyList::GetInt(const std::string& key) const {
    for (const auto& [name, value] : entries)
        if (name == key) return static_cast<int32_t>(std::strtoll(value.c_str(), nullptr, 10));
    return 0;
}

void QLM_KeyList::SetInt(const std::string& key, int32_t value) {
    for (auto& [name, text] : entries)
        if (name == key) {
            text = std::to_string(value);
            return;
        }
    entries.emplace_back(key, std::to_string(value));
}

std::string QLM_KeyList::ToText() const {
    std::string text;
    for (const auto& [name, value] : entries) text.append(text.empty() ? "" : ";").append(name).append("=").append(value);
    return text;
}
