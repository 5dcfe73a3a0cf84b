#pragma once
// A fast packer for filtered picture rows. Private to this room. Any thread.

#include <cstddef>
#include <cstdint>
#include <vector>

/// Packs bytes as raw deflate blocks of Huffman coded literals and runs of one byte. Rows that went through a filter
/// hold next to no other repeats, and without a search for them packing is several times as fast.
/// The blocks refer to nothing before `bytes`, and end at a byte; `isLast` ends the deflate stream.
std::vector<uint8_t> QLM_DeflateRuns(const uint8_t* bytes, size_t count, bool isLast);
