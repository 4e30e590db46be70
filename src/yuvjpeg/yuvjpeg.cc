// I420 to JPEG through libjpeg's raw-data interface: no colour conversion or resampling
// happens in software, the planes go to the DCT as they are.
#include "zolo/yuvjpeg.h"

#include <jpeglib.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/log.h"

namespace {

constexpr const char* kLogSource = "yuvjpeg";

struct FileCloser {
  void operator()(FILE* file) const {
    if (file != nullptr) std::fclose(file);
  }
};
using File = std::unique_ptr<FILE, FileCloser>;

struct Buffer {
  void operator()(unsigned char* p) const { std::free(p); }
};
using Bytes = std::unique_ptr<unsigned char, Buffer>;

// libjpeg's default error handler exits the process; this one jumps back instead.
struct ErrorManager {
  jpeg_error_mgr base;
  jmp_buf jump;
};

void ErrorExit(j_common_ptr info) {
  auto* manager = reinterpret_cast<ErrorManager*>(info->err);
  char message[JMSG_LENGTH_MAX];
  info->err->format_message(info, message);
  OVIK_LOG_write_newline(zolo::kLogModule, 0, kLogSource, __LINE__, "yuv2jpeg", "yuv2jpeg: %s",
                         message);
  longjmp(manager->jump, 1);
}

unsigned RoundUp16(unsigned v) {
  return (v + 15u) & ~15u;
}

// Writes the padded planes as JPEG. Kept free of C++ objects with destructors so that the
// longjmp out of libjpeg's error handler skips nothing.
int Compress(FILE* out, unsigned char* planes, unsigned w, unsigned h, unsigned W, unsigned H,
             unsigned quality) {
  jpeg_compress_struct cinfo;
  ErrorManager error;
  cinfo.err = jpeg_std_error(&error.base);
  error.base.error_exit = ErrorExit;
  if (setjmp(error.jump) != 0) {
    jpeg_destroy_compress(&cinfo);
    return -1;
  }
  jpeg_create_compress(&cinfo);
  jpeg_stdio_dest(&cinfo, out);
  cinfo.image_width = w;
  cinfo.image_height = h;
  cinfo.input_components = 3;
  cinfo.in_color_space = JCS_YCbCr;
  jpeg_set_defaults(&cinfo);
  cinfo.raw_data_in = TRUE;
  cinfo.comp_info[0].h_samp_factor = 2;
  cinfo.comp_info[0].v_samp_factor = 2;
  cinfo.comp_info[1].h_samp_factor = 1;
  cinfo.comp_info[1].v_samp_factor = 1;
  cinfo.comp_info[2].h_samp_factor = 1;
  cinfo.comp_info[2].v_samp_factor = 1;
  cinfo.comp_info[0].quant_tbl_no = 0;
  cinfo.comp_info[1].quant_tbl_no = 1;
  cinfo.comp_info[2].quant_tbl_no = 1;
  cinfo.comp_info[0].dc_tbl_no = cinfo.comp_info[0].ac_tbl_no = 0;
  cinfo.comp_info[1].dc_tbl_no = cinfo.comp_info[1].ac_tbl_no = 1;
  cinfo.comp_info[2].dc_tbl_no = cinfo.comp_info[2].ac_tbl_no = 1;
  jpeg_set_quality(&cinfo, static_cast<int>(quality), TRUE);
  cinfo.optimize_coding = TRUE;
  jpeg_start_compress(&cinfo, TRUE);

  unsigned char* y_plane = planes;
  unsigned char* cb_plane = planes + static_cast<size_t>(W) * H;
  unsigned char* cr_plane = cb_plane + static_cast<size_t>(W / 2) * (H / 2);
  JSAMPROW y_rows[16];
  JSAMPROW cb_rows[8];
  JSAMPROW cr_rows[8];
  JSAMPARRAY bands[3] = {y_rows, cb_rows, cr_rows};
  for (unsigned r = 0; r < h; r += 16) {
    for (unsigned i = 0; i < 16; ++i) y_rows[i] = y_plane + static_cast<size_t>(r + i) * W;
    for (unsigned i = 0; i < 8; ++i) {
      size_t row = static_cast<size_t>(r / 2 + i) * (W / 2);
      cb_rows[i] = cb_plane + row;
      cr_rows[i] = cr_plane + row;
    }
    jpeg_write_raw_data(&cinfo, bands, 16);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  return 0;
}

int Fail(const char* message) {
  OVIK_LOG_write_newline(zolo::kLogModule, 0, kLogSource, __LINE__, "yuv2jpeg", "%s", message);
  return -1;
}

}  // namespace

void extend_edge(unsigned char* dst, int W, int H, unsigned char* src, int w, int h, int cw,
                 int ch) {
  if (dst == nullptr || src == nullptr || w <= 0 || h <= 0 || cw <= 0 || ch <= 0) return;
  const size_t uW = static_cast<size_t>(W);
  const size_t cW = uW / 2;
  unsigned char* planes[2] = {
      dst + uW * static_cast<size_t>(H),
      dst + uW * static_cast<size_t>(H) + (static_cast<size_t>(H) / 2) * cW};
  const unsigned char* sources[2] = {
      src + static_cast<size_t>(w) * h,
      src + static_cast<size_t>(w) * h + static_cast<size_t>(cw) * ch};
  // Luma: copy each row, repeat its last pixel to the padded width.
  for (int row = 0; row < h; ++row) {
    unsigned char* out = dst + uW * static_cast<size_t>(row);
    std::memcpy(out, src + static_cast<size_t>(w) * row, static_cast<size_t>(w));
    std::memset(out + w, out[w - 1], uW - static_cast<size_t>(w));
  }
  for (int row = h; row < H; ++row)
    std::memcpy(dst + uW * static_cast<size_t>(row), dst + uW * static_cast<size_t>(h - 1), uW);
  // Chroma: the same on both planes at half the padded size.
  for (int p = 0; p < 2; ++p) {
    for (int row = 0; row < ch; ++row) {
      unsigned char* out = planes[p] + cW * static_cast<size_t>(row);
      std::memcpy(out, sources[p] + static_cast<size_t>(cw) * row, static_cast<size_t>(cw));
      std::memset(out + cw, out[cw - 1], cW - static_cast<size_t>(cw));
    }
    for (int row = ch; row < H / 2; ++row)
      std::memcpy(planes[p] + cW * static_cast<size_t>(row),
                  planes[p] + cW * static_cast<size_t>(ch - 1), cW);
  }
}

int yuv2jpeg(const char* yuv_path, const char* jpg_path, unsigned w, unsigned h, unsigned quality) {
  ZLOG(3, "yuv2jpeg: yuv_path=%s, jpg_path=%s, w=%d, h=%d", yuv_path ? yuv_path : "(null)",
       jpg_path ? jpg_path : "(null)", static_cast<int>(w), static_cast<int>(h));
  if (quality > 100) return Fail("yuv2jpeg: Invalid JPEG quality value!");
  File in(yuv_path ? std::fopen(yuv_path, "r") : nullptr);
  if (!in) return Fail("yuv2jpeg: Invalid path to YUV file!");

  const size_t cw = (static_cast<size_t>(w) + 1) / 2;
  const size_t ch = (static_cast<size_t>(h) + 1) / 2;
  const size_t expected = static_cast<size_t>(w) * h + 2 * cw * ch;
  if (std::fseek(in.get(), 0, SEEK_END) != 0) return Fail("yuv2jpeg: Unexpected input format!");
  long size = std::ftell(in.get());
  if (size < 0 || static_cast<size_t>(size) != expected || w == 0 || h == 0 ||
      w > JPEG_MAX_DIMENSION || h > JPEG_MAX_DIMENSION)
    return Fail("yuv2jpeg: Unexpected input format!");
  std::rewind(in.get());

  Bytes frame(static_cast<unsigned char*>(std::malloc(expected)));
  if (!frame) return Fail("yuv2jpeg: Memory allocation failure!");
  if (std::fread(frame.get(), 1, expected, in.get()) != expected)
    return Fail("yuv2jpeg: Error reading yuv file");
  in.reset();

  const unsigned W = RoundUp16(w);
  const unsigned H = RoundUp16(h);
  Bytes padded(static_cast<unsigned char*>(std::malloc(static_cast<size_t>(H + H / 2) * W)));
  if (!padded) return Fail("yuv2jpeg: Memory allocation failure!");
  extend_edge(padded.get(), static_cast<int>(W), static_cast<int>(H), frame.get(),
              static_cast<int>(w), static_cast<int>(h), static_cast<int>(cw), static_cast<int>(ch));
  frame.reset();

  File out(jpg_path ? std::fopen(jpg_path, "wb") : nullptr);
  if (!out) return Fail("yuv2jpeg: Invalid path to JPEG file!");
  if (Compress(out.get(), padded.get(), w, h, W, H, quality) != 0) return -1;
  return 0;
}

int GetBmpWidthHeight(const std::string& path, unsigned* width, unsigned* height) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    OVIK_LOG_write_newline(zolo::kLogModule, 0, "utils", __LINE__, __func__,
                           "Failed to open bmp file: %s errno: %d", path.c_str(), errno);
    return -1;
  }
  unsigned char header[54] = {0};
  // A short file leaves the rest of the header zero.
  size_t n = std::fread(header, 1, sizeof header, file);
  (void)n;
  std::fclose(file);
  auto le32 = [&](size_t at) {
    return static_cast<unsigned>(header[at]) | static_cast<unsigned>(header[at + 1]) << 8 |
           static_cast<unsigned>(header[at + 2]) << 16 |
           static_cast<unsigned>(header[at + 3]) << 24;
  };
  if (width != nullptr) *width = le32(18);
  if (height != nullptr) *height = le32(22);
  return 0;
}
