// gen_layout_image -c '<layout string>' -f <file.png>
//
// Draws a layout's windows into a 480 x 270 PNG: each window a filled rectangle at its
// relative position and size, painted in order of "z", a colour per source id, the id as a
// label and a thin border. Exit status 0; 1 with one line on stderr for a bad command line,
// a layout string that does not parse, or a file that cannot be written.
#include <cairo.h>
#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 480;
constexpr int kHeight = 270;
// Coordinates are fractions of the picture; anything far outside it is clamped so that
// cairo never sees huge numbers.
constexpr double kLimit = 4.0;

struct Window {
  int id;
  double x, y, w, h;
  int z;
  size_t order;
};

int Fail(const char* message, const char* detail = "") {
  std::fprintf(stderr, "gen_layout_image: %s%s\n", message, detail);
  return 1;
}

double Clamp(double value) {
  if (!std::isfinite(value)) return 0;
  return std::clamp(value, -kLimit, kLimit);
}

bool ReadNumber(const cJSON* item, const char* key, double* out) {
  const cJSON* member = cJSON_GetObjectItemCaseSensitive(item, key);
  if (member == nullptr) return true;
  if (!cJSON_IsNumber(member)) return false;
  *out = member->valuedouble;
  return true;
}

bool Parse(const char* text, std::vector<Window>* windows) {
  cJSON* root = cJSON_Parse(text);
  const cJSON* array = cJSON_GetObjectItemCaseSensitive(root, "layout");
  bool ok = cJSON_IsArray(array);
  for (const cJSON* item = ok ? array->child : nullptr; item != nullptr; item = item->next) {
    double id = 0, x = 0, y = 0, w = 0, h = 0, z = 0;
    if (!cJSON_IsNumber(cJSON_GetObjectItemCaseSensitive(item, "id")) ||
        !ReadNumber(item, "id", &id) || !ReadNumber(item, "x", &x) || !ReadNumber(item, "y", &y) ||
        !ReadNumber(item, "w", &w) || !ReadNumber(item, "h", &h) || !ReadNumber(item, "z", &z)) {
      ok = false;
      break;
    }
    auto integer = [](double v) {
      return std::isfinite(v) ? static_cast<int>(std::clamp(v, -2147483648.0, 2147483647.0)) : 0;
    };
    windows->push_back({integer(id), Clamp(x), Clamp(y), std::max(0.0, Clamp(w)),
                        std::max(0.0, Clamp(h)), integer(z), windows->size()});
  }
  cJSON_Delete(root);
  return ok;
}

// A distinct, fairly saturated colour per source id (golden-angle hue steps).
void SourceColour(int id, double rgb[3]) {
  double hue = std::fmod(static_cast<double>(static_cast<unsigned>(id)) * 137.508, 360.0) / 60.0;
  double s = 0.65, v = 0.85;
  double c = v * s;
  double x = c * (1 - std::fabs(std::fmod(hue, 2.0) - 1));
  double r = 0, g = 0, b = 0;
  switch (static_cast<int>(hue)) {
    case 0:
      r = c, g = x;
      break;
    case 1:
      r = x, g = c;
      break;
    case 2:
      g = c, b = x;
      break;
    case 3:
      g = x, b = c;
      break;
    case 4:
      r = x, b = c;
      break;
    default:
      r = c, b = x;
      break;
  }
  rgb[0] = r + v - c;
  rgb[1] = g + v - c;
  rgb[2] = b + v - c;
}

// Draws `label` (digits and "-") as seven-segment strokes in a cell `size` high, its top
// left corner at (x, y). Strokes instead of a font: no font files, the same picture on
// every machine.
void DrawLabel(cairo_t* cr, const std::string& label, double x, double y, double size) {
  // Segments a (top), b, c (right), d (bottom), e, f (left), g (middle), per character.
  static const char* const kDigits[] = {"abcdef", "bc",     "abdeg", "abcdg",   "bcfg",
                                        "acdfg",  "acdefg", "abc",   "abcdefg", "abcdfg"};
  double w = size / 2, h = size;
  for (char c : label) {
    const char* segments = c == '-' ? "g" : (c >= '0' && c <= '9') ? kDigits[c - '0'] : "";
    for (const char* s = segments; *s != '\0'; ++s) {
      double x0 = x, y0 = y, x1 = x, y1 = y;
      switch (*s) {
        case 'a':
          x1 = x + w;
          break;
        case 'b':
          x0 = x1 = x + w, y1 = y + h / 2;
          break;
        case 'c':
          x0 = x1 = x + w, y0 = y + h / 2, y1 = y + h;
          break;
        case 'd':
          y0 = y1 = y + h, x1 = x + w;
          break;
        case 'e':
          y0 = y + h / 2, y1 = y + h;
          break;
        case 'f':
          y1 = y + h / 2;
          break;
        default:
          y0 = y1 = y + h / 2, x1 = x + w;
          break;
      }
      cairo_move_to(cr, x0, y0);
      cairo_line_to(cr, x1, y1);
    }
    x += w + size / 4;
  }
  cairo_set_line_width(cr, std::max(1.5, size / 8));
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
  cairo_stroke(cr);
}

void Draw(cairo_t* cr, std::vector<Window> windows) {
  cairo_set_source_rgb(cr, 0.08, 0.08, 0.08);
  cairo_paint(cr);
  std::stable_sort(windows.begin(), windows.end(),
                   [](const Window& a, const Window& b) { return a.z < b.z; });
  for (const Window& w : windows) {
    double left = w.x * kWidth, top = w.y * kHeight, width = w.w * kWidth, height = w.h * kHeight;
    double rgb[3];
    SourceColour(w.id, rgb);
    cairo_rectangle(cr, left, top, width, height);
    cairo_set_source_rgb(cr, rgb[0], rgb[1], rgb[2]);
    cairo_fill_preserve(cr);
    cairo_set_line_width(cr, 1.0);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_stroke(cr);
    // The label sits in the window's top left corner, so that the centre keeps the colour.
    double size = std::clamp(std::min(width, height) / 4, 8.0, 28.0);
    cairo_set_source_rgb(cr, 1, 1, 1);
    DrawLabel(cr, std::to_string(w.id), left + 5, top + 5, size);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const char* layout = nullptr;
  const char* file = nullptr;
  std::string layout_text;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "-c") == 0 && i + 1 < argc) {
      layout = argv[++i];
    } else if (std::strcmp(argv[i], "--layout-file") == 0 && i + 1 < argc) {
      // A layout too long for one argument comes in a file ("-": standard input).
      const char* name = argv[++i];
      std::ifstream in;
      if (std::strcmp(name, "-") != 0) in.open(name, std::ios::binary);
      std::istream& source = std::strcmp(name, "-") == 0 ? std::cin : in;
      if (!source) return Fail("cannot read ", name);
      layout_text.assign(std::istreambuf_iterator<char>(source), std::istreambuf_iterator<char>());
      layout = layout_text.c_str();
    } else if (std::strcmp(argv[i], "-f") == 0 && i + 1 < argc) {
      file = argv[++i];
    } else if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
      std::printf(
          "usage: gen_layout_image -c '<layout string>' | --layout-file FILE -f <file.png>\n");
      return 0;
    } else {
      return Fail("unknown argument ", argv[i]);
    }
  }
  if (layout == nullptr || file == nullptr)
    return Fail("usage: gen_layout_image -c '<layout string>' | --layout-file FILE -f <file.png>");
  std::vector<Window> windows;
  if (!Parse(layout, &windows))
    return Fail("not a layout string: ", std::string(layout).substr(0, 200).c_str());
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
  cairo_t* cr = cairo_create(surface);
  Draw(cr, windows);
  cairo_destroy(cr);
  cairo_status_t status = cairo_surface_write_to_png(surface, file);
  cairo_surface_destroy(surface);
  if (status != CAIRO_STATUS_SUCCESS)
    return Fail("cannot write ",
                (std::string(file) + " (" + cairo_status_to_string(status) + ")").c_str());
  return 0;
}
