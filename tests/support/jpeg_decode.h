// Decodes a JPEG file for tests that look at pixels.
#pragma once

#include <jpeglib.h>

#include <cstdio>
#include <string>
#include <vector>

namespace zolo::test {

// The pixels of the JPEG at `path`, three components each in `space` (JCS_RGB, or JCS_YCbCr
// for the raw components), full resolution. False when the file cannot be opened.
inline bool DecodeJpeg(const std::string& path, J_COLOR_SPACE space, unsigned* width,
                       unsigned* height, std::vector<unsigned char>* pixels) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return false;
  jpeg_decompress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&info);
  jpeg_stdio_src(&info, file);
  jpeg_read_header(&info, TRUE);
  info.out_color_space = space;
  jpeg_start_decompress(&info);
  *width = info.output_width;
  *height = info.output_height;
  pixels->resize(static_cast<size_t>(*width) * *height * 3);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = pixels->data() + static_cast<size_t>(info.output_scanline) * *width * 3;
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  std::fclose(file);
  return true;
}

}  // namespace zolo::test
