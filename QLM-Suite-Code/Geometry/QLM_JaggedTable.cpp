#include "Geometry/QLM_JaggedTable.h"

#include "Core/Logging/QLM_RaiseError.h"

void QLM_JaggedTable::Begin(int rows) {
    Free();
    rowCount = rows;
    histogram = std::make_unique<int32_t[]>(rows);
}

void QLM_JaggedTable::Allocate() {
    // Sum in 64 bits: a few hundred million corners pass the range of an int.
    rowStart = std::make_unique_for_overwrite<int64_t[]>(rowCount);
    totalInts = 0;
    for (int i = 0; i < rowCount; ++i) {
        rowStart[i] = totalInts;
        totalInts += 1 + static_cast<int64_t>(histogram[i]);
    }
    block = std::make_unique_for_overwrite<int32_t[]>(totalInts);
    for (int i = 0; i < rowCount; ++i) block[rowStart[i]] = 0;
}

void QLM_JaggedTable::End() { histogram.reset(); }

void QLM_JaggedTable::Free() {
    block.reset();
    rowStart.reset();
    histogram.reset();
    rowCount = 0;
    totalInts = 0;
}

void QLM_JaggedTable::RaiseOverflow(int row, int value) const {
    QLM_RaiseError("(Table[i][0] > Histogram[i]) %d, %d, i = %d of %d, value = %d", block[rowStart[row]],
                   histogram[row], row, rowCount, value);
}
