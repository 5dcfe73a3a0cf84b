#pragma once
// Values carried in a control's name as "key=value" entries separated by ';'.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class QLM_KeyList {
  public:
    explicit QLM_KeyList(const std::string& text = {});
    int32_t GetInt(const std::string& key) const; ///< 0 when absent
    void SetInt(const std::string& key, int32_t value);
    std::string ToText() const;

  private:
    std::vector<std::pair<std::string, std::string>> entries;
};
