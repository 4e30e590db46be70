// yuv2jpeg decoded back with libjpeg and compared with its source planes; padding; failures.
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <zolo/yuvjpeg.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "jpeg_decode.h"
#include "log_capture.h"
#include "sandbox.h"

namespace {

using zolo::test::LogCapture;
using zolo::test::Sandbox;

struct Frame {
  unsigned w, h, cw, ch;
  std::vector<unsigned char> bytes;  // Y, then Cb, then Cr
  unsigned char Y(unsigned x, unsigned y) const { return bytes[y * w + x]; }
  unsigned char Cb(unsigned x, unsigned y) const { return bytes[w * h + y * cw + x]; }
};

// Smooth gradients, as a camera would see them (JPEG is lossy on noise by design).
Frame MakeFrame(unsigned w, unsigned h) {
  Frame f{w, h, (w + 1) / 2, (h + 1) / 2, {}};
  f.bytes.resize(w * h + 2 * f.cw * f.ch);
  for (unsigned y = 0; y < h; ++y)
    for (unsigned x = 0; x < w; ++x)
      f.bytes[y * w + x] =
          static_cast<unsigned char>(16 + (x * 200) / (w + 1) + (y * 20) / (h + 1));
  unsigned char* cb = f.bytes.data() + w * h;
  unsigned char* cr = cb + f.cw * f.ch;
  for (unsigned y = 0; y < f.ch; ++y)
    for (unsigned x = 0; x < f.cw; ++x) {
      cb[y * f.cw + x] = static_cast<unsigned char>(100 + (y * 50) / (f.ch + 1));
      cr[y * f.cw + x] = static_cast<unsigned char>(150 - (x * 40) / (f.cw + 1));
    }
  return f;
}

// Decodes a JPEG to raw YCbCr (no colour conversion), full resolution per component.
bool Decode(const std::string& path, unsigned* w, unsigned* h, std::vector<unsigned char>* ycc) {
  return zolo::test::DecodeJpeg(path, JCS_YCbCr, w, h, ycc);
}

double Psnr(double mse) {
  return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
}

class Yuv2JpegTest : public testing::TestWithParam<std::pair<unsigned, unsigned>> {
 protected:
  Sandbox sandbox_;
};

TEST_P(Yuv2JpegTest, DecodesBackCloseToTheSourcePlanes) {
  auto [w, h] = GetParam();
  Frame frame = MakeFrame(w, h);
  std::string yuv = sandbox_.Path("/in.yuv"), jpg = sandbox_.Path("/out.jpg");
  sandbox_.WriteFile("/in.yuv", std::string(frame.bytes.begin(), frame.bytes.end()));
  ASSERT_EQ(yuv2jpeg(yuv.c_str(), jpg.c_str(), w, h, 90), 0);
  unsigned dw = 0, dh = 0;
  std::vector<unsigned char> ycc;
  ASSERT_TRUE(Decode(jpg, &dw, &dh, &ycc));
  ASSERT_EQ(dw, w);
  ASSERT_EQ(dh, h);
  double luma = 0, chroma = 0;
  for (unsigned y = 0; y < h; ++y)
    for (unsigned x = 0; x < w; ++x) {
      const unsigned char* px = &ycc[(static_cast<size_t>(y) * w + x) * 3];
      luma += std::pow(px[0] - frame.Y(x, y), 2);
      chroma += std::pow(px[1] - frame.Cb(x / 2, y / 2), 2);
    }
  EXPECT_GT(Psnr(luma / (w * h)), 38.0);
  EXPECT_GT(Psnr(chroma / (w * h)), 35.0);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Yuv2JpegTest,
                         testing::Values(std::make_pair(5u, 3u), std::make_pair(16u, 16u),
                                         std::make_pair(33u, 17u), std::make_pair(1920u, 1080u)));

TEST(ExtendEdge, RepeatsTheLastColumnAndRow) {
  Frame f = MakeFrame(5, 3);  // cw 3, ch 2, padded to 16 x 16
  std::vector<unsigned char> dst(16 * 24, 0xAA);
  extend_edge(dst.data(), 16, 16, f.bytes.data(), 5, 3, 3, 2);
  for (unsigned y = 0; y < 16; ++y)
    for (unsigned x = 0; x < 16; ++x)
      ASSERT_EQ(dst[y * 16 + x], f.Y(std::min(x, 4u), std::min(y, 2u))) << x << "," << y;
  const unsigned char* cb = dst.data() + 256;
  const unsigned char* cr = cb + 64;
  const unsigned char* src_cr = f.bytes.data() + 15 + 6;
  for (unsigned y = 0; y < 8; ++y)
    for (unsigned x = 0; x < 8; ++x) {
      ASSERT_EQ(cb[y * 8 + x], f.Cb(std::min(x, 2u), std::min(y, 1u)));
      ASSERT_EQ(cr[y * 8 + x], src_cr[std::min(y, 1u) * 3 + std::min(x, 2u)]);
    }
}

TEST(ExtendEdge, FullHdPadsTheLastEightRowsWithRow1079) {
  Frame f = MakeFrame(1920, 1080);
  ASSERT_EQ(f.bytes.size(), 3110400u);
  std::vector<unsigned char> dst(1920 * (1088 + 544));
  extend_edge(dst.data(), 1920, 1088, f.bytes.data(), 1920, 1080, 960, 540);
  for (unsigned y = 1080; y < 1088; ++y)
    ASSERT_EQ(0, std::memcmp(&dst[y * 1920], &f.bytes[1079 * 1920], 1920)) << y;
}

struct FailureCase {
  const char* name;
  std::string content;  // written to in.yuv unless empty
  unsigned quality;
  bool bad_output;
  const char* message;
};

class Yuv2JpegFailure : public testing::TestWithParam<FailureCase> {};

TEST_P(Yuv2JpegFailure, ReturnsMinusOneWithItsMessage) {
  const auto& c = GetParam();
  Sandbox sandbox;
  if (!c.content.empty()) sandbox.WriteFile("/in.yuv", c.content);
  std::string out = c.bad_output ? sandbox.Path("/missing/dir/out.jpg") : sandbox.Path("/o.jpg");
  LogCapture log;
  EXPECT_EQ(yuv2jpeg(sandbox.Path("/in.yuv").c_str(), out.c_str(), 5, 3, c.quality), -1);
  EXPECT_TRUE(log.Has(c.message, 0)) << log.Dump();
  EXPECT_TRUE(log.Has(
      "yuv2jpeg: yuv_path=" + sandbox.Path("/in.yuv") + ", jpg_path=" + out + ", w=5, h=3", 3));
}

INSTANTIATE_TEST_SUITE_P(
    Table, Yuv2JpegFailure,
    testing::Values(
        // Quality is checked before the input is even opened (the file does not exist).
        FailureCase{"quality", "", 101, false, "yuv2jpeg: Invalid JPEG quality value!"},
        FailureCase{"missing", "", 90, false, "yuv2jpeg: Invalid path to YUV file!"},
        FailureCase{"short", std::string(26, 'x'), 90, false, "yuv2jpeg: Unexpected input format!"},
        FailureCase{"long", std::string(28, 'x'), 90, false, "yuv2jpeg: Unexpected input format!"},
        FailureCase{"output", std::string(27, 'x'), 90, true,
                    "yuv2jpeg: Invalid path to JPEG file!"}),
    [](const auto& test_case) { return std::string(test_case.param.name); });

TEST(Yuv2JpegEdges, QualityZeroAndNullPaths) {
  Sandbox sandbox;
  sandbox.WriteFile("/in.yuv", std::string(27, '\x80'));
  EXPECT_EQ(yuv2jpeg(sandbox.Path("/in.yuv").c_str(), sandbox.Path("/q0.jpg").c_str(), 5, 3, 0), 0);
  EXPECT_EQ(yuv2jpeg(nullptr, sandbox.Path("/x.jpg").c_str(), 5, 3, 50), -1);
  EXPECT_EQ(yuv2jpeg(sandbox.Path("/in.yuv").c_str(), nullptr, 5, 3, 50), -1);
  EXPECT_EQ(yuv2jpeg(sandbox.Path("/in.yuv").c_str(), sandbox.Path("/z.jpg").c_str(), 0, 0, 50),
            -1);
}

TEST(BmpHeader, ReadsLittleEndianSizes) {
  Sandbox sandbox;
  std::string header(54, '\0');
  header[0] = 'B';
  header[1] = 'M';
  header[18] = static_cast<char>(0x80);  // width 640
  header[19] = 0x02;
  // height -480 (top-down): 0xFFFFFE20
  header[22] = 0x20;
  header[23] = static_cast<char>(0xFE);
  header[24] = static_cast<char>(0xFF);
  header[25] = static_cast<char>(0xFF);
  sandbox.WriteFile("/a.bmp", header);
  unsigned w = 0, h = 0;
  EXPECT_EQ(GetBmpWidthHeight(sandbox.Path("/a.bmp"), &w, &h), 0);
  EXPECT_EQ(w, 640u);
  EXPECT_EQ(h, 0xFFFFFE20u);
  sandbox.WriteFile("/short.bmp", "BM");
  EXPECT_EQ(GetBmpWidthHeight(sandbox.Path("/short.bmp"), &w, &h), 0);
  EXPECT_EQ(w, 0u);
  LogCapture log;
  EXPECT_EQ(GetBmpWidthHeight(sandbox.Path("/none.bmp"), &w, &h), -1);
  EXPECT_TRUE(
      log.HasFragment("Failed to open bmp file: " + sandbox.Path("/none.bmp") + " errno: "));
}

}  // namespace
