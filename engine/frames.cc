// Pictures the simulated engine writes: colour bars as real JPEG files.
#include <zolo/yuvjpeg.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "engine_methods.h"

namespace zolo::sim {

int WriteStillJpeg(const std::string& path, int width, int height, int seed) {
  static const unsigned char kBars[8][3] = {{235, 128, 128}, {210, 16, 146},  {170, 166, 16},
                                            {145, 54, 34},   {106, 202, 222}, {81, 90, 240},
                                            {41, 240, 110},  {16, 128, 128}};
  if (width <= 0 || height <= 0) return -1;
  const size_t w = static_cast<size_t>(width);
  const size_t h = static_cast<size_t>(height);
  const size_t cw = (w + 1) / 2;
  const size_t ch = (h + 1) / 2;
  std::vector<unsigned char> frame(w * h + 2 * cw * ch);
  unsigned char* y = frame.data();
  unsigned char* u = y + w * h;
  unsigned char* v = u + cw * ch;
  auto bar = [seed](size_t x, size_t across) {
    return ((static_cast<int>(x * 8 / across) + seed) % 8 + 8) % 8;
  };
  for (size_t row = 0; row < h; ++row)
    for (size_t x = 0; x < w; ++x) y[row * w + x] = kBars[bar(x, w)][0];
  for (size_t row = 0; row < ch; ++row)
    for (size_t x = 0; x < cw; ++x) {
      u[row * cw + x] = kBars[bar(x, cw)][1];
      v[row * cw + x] = kBars[bar(x, cw)][2];
    }
  const std::string raw = path + ".yuv";
  {
    std::ofstream out(raw, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(frame.data()),
              static_cast<std::streamsize>(frame.size()));
    if (!out) {
      std::remove(raw.c_str());
      return -1;
    }
  }
  int result = yuv2jpeg(raw.c_str(), path.c_str(), static_cast<unsigned>(width),
                        static_cast<unsigned>(height), 85);
  std::remove(raw.c_str());
  return result;
}

}  // namespace zolo::sim
