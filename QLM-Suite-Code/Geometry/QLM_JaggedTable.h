#pragma once
// Rows of different length, built in two passes through a histogram.

#include <cstdint>
#include <memory>

/// Row i is [count, e0, e1, ...] in one block. Begin, Count, Allocate, Add, End in this order on the main thread;
/// Count and Add may run on several threads as long as each row belongs to one of them. Readers: any thread.
class QLM_JaggedTable {
  public:
    void Begin(int rows);
    void Count(int row, int n = 1) { histogram[row] += n; }
    void Allocate();
    /// Appends; raises when it goes past the histogram.
    void Add(int row, int value) {
        int32_t* entries = block.get() + rowStart[row];
        if (++entries[0] > histogram[row]) RaiseOverflow(row, value);
        entries[entries[0]] = value;
    }
    void End();
    void Free();

    int GetRowCount() const { return rowCount; }
    int GetCount(int row) const { return block[rowStart[row]]; }
    int Get(int row, int i) const { return block[rowStart[row] + 1 + i]; }
    int64_t GetByteCount() const { return (totalInts + 2LL * rowCount) * static_cast<int64_t>(sizeof(int32_t)); }
    /// The row from its count on.
    const int32_t* GetRow(int row) const { return block.get() + rowStart[row]; }

  private:
    [[noreturn]] void RaiseOverflow(int row, int value) const;

    std::unique_ptr<int32_t[]> block;
    std::unique_ptr<int64_t[]> rowStart;
    std::unique_ptr<int32_t[]> histogram;
    int rowCount = 0;
    int64_t totalInts = 0; ///< in the block
};
