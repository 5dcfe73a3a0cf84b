#include "Images/QLM_DeflateRuns.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <queue>

namespace {

constexpr size_t blockBytes = 64 * 1024; ///< each block has codes of its own
constexpr int literalSymbols = 286, endOfBlock = 256, longestCode = 15;
constexpr size_t headerBound = 256; ///< bytes of a block's code lengths, and what ends it
constexpr int shortestRun = 3, longestRun = 258;

/// What is written: a literal, the end, or a run. A run of n bytes is token firstRun + n - shortestRun.
constexpr int firstRun = 257, tokenCount = firstRun + longestRun - shortestRun + 1;

/// The symbol of a run and the bits that follow it.
struct RunCode {
    int symbol, extraBits, extra;
};

/// Symbols 257 to 264 stand for one length each, then groups of four double their span; 285 is 258 alone.
RunCode CodeOfRun(int length) {
    if (length == longestRun) return {285, 0, 0};
    const int over = length - shortestRun;
    if (over < 8) return {257 + over, 0, 0};
    const int extraBits = int(std::bit_width(unsigned(over))) - 3;
    return {257 + extraBits * 4 + (over >> extraBits), extraBits, over & ((1 << extraBits) - 1)};
}

using Lengths = std::array<uint8_t, literalSymbols>;
using Counts = std::array<uint32_t, literalSymbols>;

/// Lengths of a Huffman code, unlimited; answers the longest. Two symbols at least occur.
int BuildLengths(const Counts& counts, Lengths& lengths) {
    struct Node {
        uint32_t weight;
        int index;
        bool operator>(const Node& other) const {
            return weight != other.weight ? weight > other.weight : index > other.index;
        }
    };
    std::priority_queue<Node, std::vector<Node>, std::greater<>> open;
    std::array<int, 2 * literalSymbols> parent{};
    int next = literalSymbols;
    for (int i = 0; i < literalSymbols; i++)
        if (counts[size_t(i)] > 0) open.push({counts[size_t(i)], i});
    while (open.size() > 1) {
        const Node a = open.top();
        open.pop();
        const Node b = open.top();
        open.pop();
        parent[size_t(a.index)] = parent[size_t(b.index)] = next;
        open.push({a.weight + b.weight, next++});
    }
    // Parents come behind their children, so depths are known from the root downwards.
    std::array<int, 2 * literalSymbols> depth{};
    for (int i = next - 2; i >= literalSymbols; i--) depth[size_t(i)] = depth[size_t(parent[size_t(i)])] + 1;
    int longest = 0;
    for (size_t i = 0; i < literalSymbols; i++) {
        const int length = counts[i] > 0 ? depth[size_t(parent[i])] + 1 : 0;
        lengths[i] = uint8_t(std::min(length, 255));
        longest = std::max(longest, length);
    }
    return longest;
}

/// Codes by their lengths, shortest first, bits reversed as the format packs them from the low end.
std::array<uint16_t, literalSymbols> AssignCodes(const Lengths& lengths) {
    std::array<uint16_t, longestCode + 2> next{};
    for (const uint8_t length : lengths)
        if (length > 0) next[length + 1u]++;
    for (size_t bits = 1; bits <= longestCode; bits++) next[bits + 1] = uint16_t((next[bits] + next[bits + 1]) << 1);
    // Until here entry n + 1 held the first code of length n + 1; shift back to index by the length itself.
    std::array<uint16_t, literalSymbols> codes{};
    for (size_t i = 0; i < literalSymbols; i++) {
        uint16_t code = lengths[i] > 0 ? next[lengths[i]]++ : 0;
        for (int bit = 0; bit < lengths[i]; bit++, code >>= 1) codes[i] = uint16_t(codes[i] << 1 | (code & 1));
    }
    return codes;
}

class BitWriter {
  public:
    explicit BitWriter(size_t bound) : bytes(bound) {}
    /// At most 32 bits.
    void Put(uint32_t bits, int count) {
        buffer |= uint64_t(bits) << filled;
        filled += count;
        if (filled < 32) return;
        memcpy(&bytes[size], &buffer, 4);
        size += 4;
        buffer >>= 32;
        filled -= 32;
    }
    void Align() {
        for (; filled > 0; filled -= 8, buffer >>= 8) bytes[size++] = uint8_t(buffer);
        filled = 0;
        buffer = 0;
    }
    std::vector<uint8_t> Take() {
        bytes.resize(size);
        return std::move(bytes);
    }

  private:
    std::vector<uint8_t> bytes;
    size_t size = 0;
    uint64_t buffer = 0;
    int filled = 0;
};

class Packer {
  public:
    Packer(const uint8_t* bytesIn, size_t countIn)
        : bytes(bytesIn), count(countIn), writer(countIn * 2 + (countIn / blockBytes + 1) * headerBound),
          tokens(blockBytes + 1) {}

    std::vector<uint8_t> Pack(bool isLast) {
        for (size_t at = 0; at < count;) {
            const size_t end = std::min(count, at + blockBytes);
            Tokenize(at, end);
            at = end;
            WriteBlock(isLast && at == count);
        }
        if (!isLast) { // an empty stored block fills up the byte
            writer.Put(0, 3);
            writer.Align();
            writer.Put(0xFFFF0000u, 32);
        }
        writer.Align();
        return writer.Take();
    }

  private:
    void Tokenize(size_t at, size_t end);
    size_t RunLength(size_t at, size_t end) const;
    void WriteBlock(bool isLast);

    const uint8_t* const bytes;
    const size_t count;
    BitWriter writer;
    std::vector<uint16_t> tokens;
    size_t used = 0;
};

/// How many bytes from `at` on equal the one before.
size_t Packer::RunLength(size_t at, size_t end) const {
    const size_t limit = std::min(end - at, size_t(longestRun));
    size_t length = 0;
    while (length < limit && bytes[at + length] == bytes[at - 1]) length++;
    return length;
}

void Packer::Tokenize(size_t at, size_t end) {
    used = 0;
    if (at == 0) tokens[used++] = bytes[at++];
    while (at + 4 <= end) {
        uint32_t here, before;
        memcpy(&here, bytes + at, 4);
        memcpy(&before, bytes + at - 1, 4);
        if (here != before) { // no run of four
            tokens[used++] = bytes[at++];
            continue;
        }
        const size_t length = RunLength(at, end);
        tokens[used++] = uint16_t(firstRun + int(length) - shortestRun);
        at += length;
    }
    for (; at < end; at++) tokens[used++] = bytes[at];
    tokens[used++] = endOfBlock;
}

void Packer::WriteBlock(bool isLast) {
    // Four tables by turns, or equal neighbours would wait for each other's sum.
    static thread_local uint32_t tallies[4][tokenCount];
    memset(tallies, 0, sizeof tallies);
    size_t i = 0;
    for (; i + 4 <= used; i += 4)
        for (size_t k = 0; k < 4; k++) tallies[k][tokens[i + k]]++;
    for (; i < used; i++) tallies[0][tokens[i]]++;
    Counts counts{};
    for (int t = 0; t < tokenCount; t++) {
        const int symbol = t < firstRun ? t : CodeOfRun(t - firstRun + shortestRun).symbol;
        for (const auto& tally : tallies) counts[size_t(symbol)] += tally[t];
    }
    Lengths lengths;
    // Flatter weights give shorter codes.
    while (BuildLengths(counts, lengths) > longestCode)
        for (uint32_t& weight : counts) weight = (weight + 1) / 2;
    const auto codes = AssignCodes(lengths);

    // The header: 286 literal codes, one distance code, and lengths that are written as they are, four bits each.
    writer.Put(isLast ? 1 : 0, 1);
    writer.Put(2, 2);
    writer.Put(literalSymbols - 257, 5);
    writer.Put(0, 5);
    writer.Put(19 - 4, 4);
    for (int k = 0; k < 19; k++) writer.Put(k < 3 ? 0 : 4, 3); // the first three would repeat a length
    const auto putLength = [&](uint32_t length) {
        writer.Put((length & 1) << 3 | (length & 2) << 1 | (length & 4) >> 1 | (length & 8) >> 3, 4);
    };
    for (const uint8_t length : lengths) putLength(length);
    putLength(1); // the distance of one byte takes one bit, a 0

    struct Entry {
        uint32_t bits;
        int count;
    };
    std::array<Entry, tokenCount> table;
    for (int t = 0; t < tokenCount; t++) {
        const RunCode run = t < firstRun ? RunCode{t, 0, 0} : CodeOfRun(t - firstRun + shortestRun);
        const int length = lengths[size_t(run.symbol)];
        table[size_t(t)] = {codes[size_t(run.symbol)] | uint32_t(run.extra) << length,
                            length + run.extraBits + (t < firstRun ? 0 : 1)};
    }
    for (size_t t = 0; t < used; t++) writer.Put(table[tokens[t]].bits, table[tokens[t]].count);
}

} // namespace

std::vector<uint8_t> QLM_DeflateRuns(const uint8_t* bytes, size_t count, bool isLast) {
    return Packer(bytes, count).Pack(isLast);
}
