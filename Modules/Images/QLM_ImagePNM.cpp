#include "Images/QLM_ImageFormats.h"

#include <cctype>
#include <vector>

namespace {

/// The next number of the header, past blanks and comments; 0 for none.
uint32_t ReadNumber(FILE* file) {
    int c = fgetc(file);
    for (bool comment = false; c != EOF && (comment || isspace(c) || c == '#'); c = fgetc(file))
        comment = (comment || c == '#') && c != '\n';
    uint32_t value = 0;
    for (; isdigit(c) && value < 1'000'000; c = fgetc(file)) value = value * 10 + uint32_t(c - '0');
    return value; // the one blank behind the last number is taken
}

} // namespace

bool QLM_ReadPNM(QLM_ImageSource& source, QLM_ImageSink* sink) {
    fgetc(source.file);
    const size_t channels = fgetc(source.file) == '6' ? 3 : 1;
    source.info.width = ReadNumber(source.file);
    source.info.height = ReadNumber(source.file);
    const uint32_t largest = ReadNumber(source.file);
    if (largest == 0 || largest > 65535) return source.Fail(QLM_ImageText_Damaged);
    source.info.bitsPerSample = largest > 255 ? 16 : 8;
    const size_t sampleBytes = largest > 255 ? 2 : 1, samples = size_t(source.info.width) * channels;
    if (!source.CheckSize(samples * sampleBytes * 8, 1)) return false;
    if (!sink) return true;

    if (!sink->Begin(source.info.width, source.info.height, 3)) return source.Fail(QLM_ImageText_NoMemory);
    if (sampleBytes == 2) source.AddNotice(QLM_ImageText_16Bit);
    std::vector<uint8_t> packed(samples * sampleBytes), row(size_t(source.info.width) * 3);
    for (uint32_t y = 0; y < source.info.height; y++) {
        if (fread(packed.data(), 1, packed.size(), source.file) != packed.size())
            return source.Fail(QLM_ImageText_Truncated);
        for (size_t i = 0; i < samples; i++) {
            const uint32_t high = packed[i * sampleBytes];
            const uint32_t value = sampleBytes == 2 ? high << 8 | packed[i * 2 + 1] : high;
            const uint8_t sample = uint8_t(largest == 65535 ? high : std::min(value, largest) * 255 / largest);
            for (size_t c = 0; c < 3 / channels; c++) row[i * (3 / channels) + c] = sample;
        }
        sink->SetRow(y, row.data());
    }
    return true;
}
