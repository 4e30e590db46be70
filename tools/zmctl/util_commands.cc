// config, jpeg: the configuration file and the frame-to-JPEG converter, without the engine.
#include <zolo/media.h>
#include <zolo/sysroot.h>

#include <cstdio>
#include <memory>
#include <string>

#include "context.h"

namespace zmctl {

namespace {

struct ConfigArgs {
  std::string file = "/etc/media.conf";
  std::string group;
  std::string key;
};

struct JpegArgs {
  std::string yuv;
  std::string jpeg;
  unsigned width = 0;
  unsigned height = 0;
  unsigned quality = 85;
};

struct FrameArgs {
  std::string path;
  unsigned width = 640;
  unsigned height = 360;
};

// Colour bars in I420 (BT.601 studio range): white, yellow, cyan, green, magenta, red,
// blue, black.
bool WriteColourBars(const std::string& path, unsigned w, unsigned h) {
  static constexpr unsigned char kBars[8][3] = {{235, 128, 128}, {210, 16, 146},  {170, 166, 16},
                                                {145, 54, 34},   {106, 202, 222}, {81, 90, 240},
                                                {41, 240, 110},  {16, 128, 128}};
  const unsigned cw = (w + 1) / 2, ch = (h + 1) / 2;
  std::string frame(static_cast<size_t>(w) * h + 2 * static_cast<size_t>(cw) * ch, '\0');
  for (unsigned y = 0; y < h; ++y)
    for (unsigned x = 0; x < w; ++x) frame[y * w + x] = static_cast<char>(kBars[x * 8 / w][0]);
  for (unsigned y = 0; y < ch; ++y)
    for (unsigned x = 0; x < cw; ++x) {
      const unsigned char* bar = kBars[(x * 2) * 8 / w < 8 ? (x * 2) * 8 / w : 7];
      frame[w * h + y * cw + x] = static_cast<char>(bar[1]);
      frame[w * h + cw * ch + y * cw + x] = static_cast<char>(bar[2]);
    }
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  bool ok = std::fwrite(frame.data(), 1, frame.size(), file) == frame.size();
  return std::fclose(file) == 0 && ok;
}

}  // namespace

void AddUtilCommands(CLI::App& app, Context& context) {
  auto* config = app.add_subcommand("config", "Read the configuration file");
  config->require_subcommand(1);
  auto config_args = std::make_shared<ConfigArgs>();
  auto* get = config->add_subcommand("get", "Print one value of the configuration file");
  get->add_option("GROUP", config_args->group, "Group, e.g. Engine")->required();
  get->add_option("KEY", config_args->key, "Key")->required();
  get->add_option("--file", config_args->file, "Configuration file (system path)")
      ->capture_default_str();
  get->callback([&context, config_args] {
    Config file(zolo::SysrootPath(config_args->file).c_str());
    if (file.Load() != 0) {
      context.status = Fail("loading " + config_args->file, -1);
      return;
    }
    std::string value;
    if (file.GetValue(config_args->group.c_str(), config_args->key.c_str(), &value) != 0) {
      context.status = Fail("reading " + config_args->group + "/" + config_args->key, -5);
      return;
    }
    context.out().Record(
        {{"group", config_args->group}, {"key", config_args->key}, {"value", value}});
  });

  auto jpeg_args = std::make_shared<JpegArgs>();
  auto* jpeg = app.add_subcommand("jpeg", "Convert a raw I420 frame file to JPEG");
  jpeg->add_option("YUV", jpeg_args->yuv, "Input frame (I420)")->required();
  jpeg->add_option("JPEG", jpeg_args->jpeg, "Output JPEG file")->required();
  jpeg->add_option("--width", jpeg_args->width, "Frame width")->required();
  jpeg->add_option("--height", jpeg_args->height, "Frame height")->required();
  jpeg->add_option("--quality", jpeg_args->quality, "JPEG quality 0..100")->capture_default_str();
  jpeg->callback([&context, jpeg_args] {
    int result = yuv2jpeg(jpeg_args->yuv.c_str(), jpeg_args->jpeg.c_str(), jpeg_args->width,
                          jpeg_args->height, jpeg_args->quality);
    if (result != 0) {
      context.status = Fail("yuv2jpeg", result);
      return;
    }
    context.out().Record(
        {{"jpeg", jpeg_args->jpeg}, {"bytes", std::to_string(FileSize(jpeg_args->jpeg))}});
  });

  auto frame_args = std::make_shared<FrameArgs>();
  auto* frame = app.add_subcommand("testframe", "Write an I420 colour-bar frame file");
  frame->add_option("FILE", frame_args->path, "Output frame file")->required();
  frame->add_option("--width", frame_args->width, "Frame width")
      ->capture_default_str()
      ->check(CLI::Range(1, 8192));
  frame->add_option("--height", frame_args->height, "Frame height")
      ->capture_default_str()
      ->check(CLI::Range(1, 8192));
  frame->callback([&context, frame_args] {
    if (!WriteColourBars(frame_args->path, frame_args->width, frame_args->height)) {
      context.status = Fail("writing " + frame_args->path, -1);
      return;
    }
    context.out().Record({{"frame", frame_args->path},
                          {"width", std::to_string(frame_args->width)},
                          {"height", std::to_string(frame_args->height)}});
  });
}

}  // namespace zmctl
