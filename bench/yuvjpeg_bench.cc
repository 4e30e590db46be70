// yuv2jpeg on a 1920x1080 I420 frame file against TurboJPEG compressing the same planes
// (same quality, 4:2:0, optimised Huffman), file read and JPEG write included in both.
#include <benchmark/benchmark.h>
#include <turbojpeg.h>
#include <unistd.h>
#include <zolo/yuvjpeg.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ratio_reporter.h"

namespace {

constexpr unsigned kWidth = 1920;
constexpr unsigned kHeight = 1080;
constexpr unsigned kQuality = 85;

std::string g_yuv;
std::string g_jpg;

std::vector<unsigned char> ReadAll(const std::string& path) {
  std::vector<unsigned char> bytes;
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return bytes;
  std::fseek(file, 0, SEEK_END);
  bytes.resize(static_cast<size_t>(std::ftell(file)));
  std::rewind(file);
  size_t n = std::fread(bytes.data(), 1, bytes.size(), file);
  bytes.resize(n);
  std::fclose(file);
  return bytes;
}

void WriteFrame() {
  std::vector<unsigned char> frame(kWidth * kHeight * 3 / 2);
  for (unsigned y = 0; y < kHeight; ++y)
    for (unsigned x = 0; x < kWidth; ++x)
      frame[y * kWidth + x] = static_cast<unsigned char>((x / 4 + y / 3 + ((x * y) % 7)) & 0xff);
  for (size_t i = kWidth * kHeight; i < frame.size(); ++i)
    frame[i] = static_cast<unsigned char>(96 + (i % 61));
  FILE* file = std::fopen(g_yuv.c_str(), "wb");
  std::fwrite(frame.data(), 1, frame.size(), file);
  std::fclose(file);
}

void BM_yuv2jpeg(benchmark::State& state) {
  for (auto _ : state)
    if (yuv2jpeg(g_yuv.c_str(), g_jpg.c_str(), kWidth, kHeight, kQuality) != 0)
      state.SkipWithError("yuv2jpeg failed");
}

void BM_turbojpeg_baseline(benchmark::State& state) {
  tjhandle handle = tjInitCompress();
  const int strides[3] = {static_cast<int>(kWidth), static_cast<int>(kWidth / 2),
                          static_cast<int>(kWidth / 2)};
  for (auto _ : state) {
    std::vector<unsigned char> frame = ReadAll(g_yuv);
    const unsigned char* planes[3] = {frame.data(), frame.data() + kWidth * kHeight,
                                      frame.data() + kWidth * kHeight * 5 / 4};
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    if (tjCompressFromYUVPlanes(handle, planes, kWidth, strides, kHeight, TJSAMP_420, &jpeg, &size,
                                kQuality, 0) != 0)
      state.SkipWithError(tjGetErrorStr2(handle));
    FILE* out = std::fopen(g_jpg.c_str(), "wb");
    std::fwrite(jpeg, 1, size, out);
    std::fclose(out);
    tjFree(jpeg);
  }
  tjDestroy(handle);
}

BENCHMARK(BM_yuv2jpeg)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_turbojpeg_baseline)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
  // TurboJPEG 2.x turns on optimised Huffman coding through its environment.
  setenv("TJ_OPTIMIZE", "1", 1);
  char dir[] = "/tmp/zolo-yuvjpeg-bench-XXXXXX";
  if (mkdtemp(dir) == nullptr) return 1;
  g_yuv = std::string(dir) + "/frame.yuv";
  g_jpg = std::string(dir) + "/frame.jpg";
  WriteFrame();
  benchmark::Initialize(&argc, argv);
  int result = zolo::bench::RunWithRatios({{"BM_yuv2jpeg", "BM_turbojpeg_baseline"}});
  std::remove(g_yuv.c_str());
  std::remove(g_jpg.c_str());
  rmdir(dir);
  return result;
}
