#pragma once
// Rows of different length, built in two passes through a histogram.

#include <cstdint>
#include <memory>
#include <vector>

/// Row i is [count, e0, e1, ...] in one block. Main thread.
class QLM_JaggedTable {
  public:
    void Begin(int rows);
    void Count(int row) { ++histogram[row]; }
    void Allocate();
    void Add(int row, int value); ///< raises when it goes past the histogram
    void End();
    void Free();

    int GetRowCount() const { return static_cast<int>(rowStart.size()); }
    int GetCount(int row) const { return block[rowStart[row]]; }
    int Get(int row, int i) const { return block[rowStart[row] + 1 + i]; }
    const int32_t* GetRow(int row) const { return block.get() + rowStart[row]; }

  private:
    std::unique_ptr<int32_t[]> block;
    std::vector<int64_t> rowStart;
    std::vector<int32_t> histogram;
};
