#include "Images/QLM_ImageFormats.h"

#include <algorithm>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <jpeglib.h>

#include <jerror.h>

namespace {

/// The smallest block of a scan takes one bit for its 64 samples; the arithmetic coder gets below that.
constexpr uint64_t huffmanRatio = 512, arithmeticRatio = 512 * 256;
/// Scans beyond this many are only found in files made to waste time.
constexpr int maximumScans = 500;

struct ErrorManager {
    jpeg_error_mgr base; // first, so that the library's pointer is ours
    jmp_buf jump;
    char text[JMSG_LENGTH_MAX];
    bool endedEarly;
};

[[noreturn]] void OnError(j_common_ptr common) {
    auto* errors = reinterpret_cast<ErrorManager*>(common->err);
    common->err->format_message(common, errors->text);
    longjmp(errors->jump, 1);
}

/// Only a missing end is worth a refusal: the rest of the picture would be grey. Other warnings lose nothing that
/// shows.
void OnWarning(j_common_ptr common, int level) {
    if (level < 0 && common->err->msg_code == JWRN_JPEG_EOF)
        reinterpret_cast<ErrorManager*>(common->err)->endedEarly = true;
}
void OnOutput(j_common_ptr) {}

void OnProgress(j_common_ptr common) {
    if (!common->is_decompressor || reinterpret_cast<j_decompress_ptr>(common)->input_scan_number <= maximumScans)
        return;
    auto* errors = reinterpret_cast<ErrorManager*>(common->err);
    strcpy(errors->text, "it has too many scans");
    longjmp(errors->jump, 1);
}

jpeg_error_mgr* PrepareErrors(ErrorManager& errors) {
    errors = {};
    jpeg_std_error(&errors.base);
    errors.base.error_exit = OnError;
    errors.base.emit_message = OnWarning;
    errors.base.output_message = OnOutput;
    return &errors.base;
}

/// The library leaves its functions by longjmp: everything with a destructor is a member.
class Reader {
  public:
    explicit Reader(QLM_ImageSource& sourceIn) : source(sourceIn) {
        state.err = PrepareErrors(errors);
        progress.progress_monitor = OnProgress;
    }
    ~Reader() {
        if (created) jpeg_destroy_decompress(&state);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool ReadHeader();
    bool ReadRows(QLM_ImageSink& sink);

  private:
    void ConvertRow();

    QLM_ImageSource& source;
    jpeg_decompress_struct state = {};
    jpeg_progress_mgr progress = {};
    ErrorManager errors;
    bool created = false;
    std::vector<uint8_t> row, converted;
};

bool Reader::ReadHeader() {
    if (setjmp(errors.jump)) return source.Fail(errors.text);
    jpeg_create_decompress(&state);
    created = true;
    state.progress = &progress;
    jpeg_stdio_src(&state, source.file);
    jpeg_read_header(&state, TRUE);
    source.info.width = state.image_width;
    source.info.height = state.image_height;
    if (errors.endedEarly) return source.Fail(QLM_ImageText_Truncated);
    // A component may be stored at half or a quarter of the picture's sides: the largest one decides.
    return source.CheckSize(uint64_t(state.image_width) * 8, state.arith_code ? arithmeticRatio : huffmanRatio);
}

/// Files with four inks hold them inverted, so that the product with black is light.
void Reader::ConvertRow() {
    for (size_t x = 0; x < source.info.width; x++) {
        const uint8_t* inks = row.data() + x * 4;
        for (size_t c = 0; c < 3; c++) converted[x * 3 + c] = uint8_t(inks[c] * inks[3] / 255);
    }
}

bool Reader::ReadRows(QLM_ImageSink& sink) {
    const bool isCMYK = state.jpeg_color_space == JCS_CMYK || state.jpeg_color_space == JCS_YCCK;
    row.resize(size_t(source.info.width) * (isCMYK ? 4 : 3));
    if (isCMYK) {
        converted.resize(size_t(source.info.width) * 3);
        source.AddNotice(QLM_ImageText_CMYK);
    }
    if (!sink.Begin(source.info.width, source.info.height, 3)) return source.Fail(QLM_ImageText_NoMemory);
    if (setjmp(errors.jump)) return source.Fail(errors.text);
    state.out_color_space = isCMYK ? JCS_CMYK : JCS_RGB;
    jpeg_start_decompress(&state);
    while (state.output_scanline < state.output_height) {
        JSAMPROW target = row.data();
        const uint32_t y = state.output_scanline;
        jpeg_read_scanlines(&state, &target, 1);
        if (errors.endedEarly) return source.Fail(QLM_ImageText_Truncated);
        if (isCMYK) ConvertRow();
        sink.SetRow(y, isCMYK ? converted.data() : row.data());
    }
    jpeg_finish_decompress(&state);
    return true;
}

} // namespace

bool QLM_ReadJPEG(QLM_ImageSource& source, QLM_ImageSink* sink) {
    Reader reader(source);
    return reader.ReadHeader() && (!sink || reader.ReadRows(*sink));
}

bool QLM_WriteJPEG(FILE* file, const QLM_ImageRows& image) {
    if (image.channels != 3) return false;
    std::vector<uint8_t> row(image.RowBytes()); // made before the jump is set
    ErrorManager errors;
    jpeg_compress_struct state = {};
    state.err = PrepareErrors(errors);
    if (setjmp(errors.jump)) {
        jpeg_destroy_compress(&state);
        return false;
    }
    jpeg_create_compress(&state);
    jpeg_stdio_dest(&state, file);
    state.image_width = image.width;
    state.image_height = image.height;
    state.input_components = 3;
    state.in_color_space = JCS_RGB;
    jpeg_set_defaults(&state);
    jpeg_set_quality(&state, 100, TRUE);
    // Painted edges must not bleed: no component is stored smaller.
    state.comp_info[0].h_samp_factor = state.comp_info[0].v_samp_factor = 1;
    jpeg_start_compress(&state, TRUE);
    while (state.next_scanline < image.height) {
        image.Get(state.next_scanline, row.data());
        JSAMPROW samples = row.data();
        jpeg_write_scanlines(&state, &samples, 1);
    }
    jpeg_finish_compress(&state);
    jpeg_destroy_compress(&state);
    return true;
}
