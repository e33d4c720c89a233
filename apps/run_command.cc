// `tavix run`: a handful of image-to-image operations called through their public entries on
// an image file. Single-channel operations get the file's luma, RGB ones its RGB pixels.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "image_file.h"
#include "tool.h"

namespace {

using Args = std::vector<std::string>;

struct RunParams {
  int32_t i[2] = {0, 0};
  float f[2] = {0, 0};
};

struct RunOp {
  const char* name;
  const char* argsUsage;
  const char* doc;
  size_t minArgs, maxArgs;
  uint32_t channels;
  uint32_t rows[2];  // dispatch rows it goes through; 0 ends a shorter list (row 0 is none of these)
  bool (*parse)(const Args& args, RunParams* params, std::string* error);
  // Allocates the output and calls the library; returns the library's status (0 success).
  int32_t (*apply)(const Image& in, const RunParams& params, Image* out);
};

bool parseInt(const std::string& text, long lo, long hi, const char* what, int32_t* value, std::string* error) {
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || v < lo || v > hi) {
    *error = std::string(what) + " must be an integer from " + std::to_string(lo) + " to " + std::to_string(hi) +
             ", got '" + text + "'";
    return false;
  }
  *value = static_cast<int32_t>(v);
  return true;
}

bool parseFloat(const std::string& text, float lo, float hi, const char* what, float* value, std::string* error) {
  char* end = nullptr;
  const float v = std::strtof(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !(v >= lo && v <= hi)) {
    *error = std::string(what) + " must be a number from " + std::to_string(lo) + " to " + std::to_string(hi) +
             ", got '" + text + "'";
    return false;
  }
  *value = v;
  return true;
}

bool parseFlipDirection(const Args& a, RunParams* p, std::string* error) {
  const std::string& d = a[0];
  if (d == "h" || d == "horizontal" || d == "1") p->i[0] = TVX_FLIP_HORIZONTAL;
  else if (d == "v" || d == "vertical" || d == "2") p->i[0] = TVX_FLIP_VERTICAL;
  else if (d == "both" || d == "3") p->i[0] = TVX_FLIP_BOTH;
  else {
    *error = "direction must be h, v or both (or 1, 2, 3), got '" + d + "'";
    return false;
  }
  return true;
}

bool parseNothing(const Args&, RunParams*, std::string*) { return true; }

Image sameShape(const Image& in) { return Image(in.width, in.height, in.channels); }
Image transposedShape(const Image& in) { return Image(in.height, in.width, in.channels); }

const RunOp kRunOps[] = {
    {"tvxAbsDiffVu8", "value", "|pixel - value|, value 0..255", 1, 1, 1, {TVX_ROW_tvxAbsDiffVu8},
     [](const Args& a, RunParams* p, std::string* e) { return parseInt(a[0], 0, 255, "value", &p->i[0], e); },
     [](const Image& in, const RunParams& p, Image* out) -> int32_t {
       *out = sameShape(in);
       tvxAbsDiffVu8(in.pixels.data(), static_cast<uint8_t>(p.i[0]), in.width, in.height, in.stride(),
                     out->pixels.data(), out->stride());
       return 0;
     }},
    {"tvxFlipu8", "h|v|both", "mirror of the grey image", 1, 1, 1, {TVX_ROW_tvxFlipu8}, parseFlipDirection,
     [](const Image& in, const RunParams& p, Image* out) -> int32_t {
       *out = sameShape(in);
       tvxFlipu8(in.pixels.data(), in.width, in.height, in.stride(), out->pixels.data(), out->stride(), p.i[0]);
       return 0;
     }},
    {"tvxFlipRGB888u8", "h|v|both", "mirror of the RGB image", 1, 1, 3, {TVX_ROW_tvxFlipRGB888u8},
     parseFlipDirection,
     [](const Image& in, const RunParams& p, Image* out) -> int32_t {
       *out = sameShape(in);
       return tvxFlipRGB888u8(in.pixels.data(), in.width, in.height, in.stride(), out->pixels.data(),
                              out->stride(), p.i[0]);
     }},
    {"tvxTransposeu8", "", "transpose of the grey image", 0, 0, 1, {TVX_ROW_tvxTransposeu8}, parseNothing,
     [](const Image& in, const RunParams&, Image* out) -> int32_t {
       *out = transposedShape(in);
       tvxTransposeu8(in.pixels.data(), in.width, in.height, in.stride(), out->pixels.data(), out->stride());
       return 0;
     }},
    {"tvxTransposeRGB888u8", "", "transpose of the RGB image", 0, 0, 3, {TVX_ROW_tvxTransposeRGB888u8},
     parseNothing,
     [](const Image& in, const RunParams&, Image* out) -> int32_t {
       *out = transposedShape(in);
       return tvxTransposeRGB888u8(in.pixels.data(), in.width, in.height, in.stride(), out->pixels.data(),
                                   out->stride());
     }},
    {"tvxRotateImageu8", "90|180|270", "clockwise rotation of the grey image", 1, 1, 1,
     {TVX_ROW_tvxRotateImageu8, TVX_ROW_tvxFlipu8},
     [](const Args& a, RunParams* p, std::string* e) {
       const std::string& d = a[0];
       p->i[0] = d == "90" ? TVX_ROTATE_90 : d == "180" ? TVX_ROTATE_180 : d == "270" ? TVX_ROTATE_270 : 0;
       if (p->i[0] == 0) *e = "degrees must be 90, 180 or 270, got '" + d + "'";
       return p->i[0] != 0;
     },
     [](const Image& in, const RunParams& p, Image* out) -> int32_t {
       *out = p.i[0] == TVX_ROTATE_180 ? sameShape(in) : transposedShape(in);
       return tvxRotateImageu8(in.pixels.data(), in.width, in.height, in.stride(), out->pixels.data(),
                               out->stride(), p.i[0]);
     }},
    {"tvxTableLookupu8", "[gamma]", "negative, or gamma curve 255*(v/255)^gamma", 0, 1, 1,
     {TVX_ROW_tvxTableLookupu8},
     [](const Args& a, RunParams* p, std::string* e) {
       p->f[0] = 0;  // 0: negative
       return a.empty() || parseFloat(a[0], 0.01f, 100.0f, "gamma", &p->f[0], e);
     },
     [](const Image& in, const RunParams& p, Image* out) -> int32_t {
       uint8_t lut[256];
       for (int v = 0; v < 256; ++v) {
         lut[v] = p.f[0] == 0 ? static_cast<uint8_t>(255 - v)
                              : static_cast<uint8_t>(std::lround(255.0 * std::pow(v / 255.0, p.f[0])));
       }
       *out = sameShape(in);
       return tvxTableLookupu8(in.pixels.data(), in.width, in.height, in.stride(), lut, out->pixels.data(),
                               out->stride());
     }},
    {"tvxBitwiseNotu8", "", "negative of the grey image", 0, 0, 1, {TVX_ROW_tvxBitwiseNotu8}, parseNothing,
     [](const Image& in, const RunParams&, Image* out) -> int32_t {
       *out = sameShape(in);
       return tvxBitwiseNotu8(in.pixels.data(), in.width, in.height, in.stride(), out->pixels.data(), out->stride());
     }},
    {"tvxAddWeightedu8", "alpha beta", "alpha*image + beta*image (the image with itself)", 2, 2, 1,
     {TVX_ROW_tvxAddWeightedu8},
     [](const Args& a, RunParams* p, std::string* e) {
       return parseFloat(a[0], -127, 127, "alpha", &p->f[0], e) && parseFloat(a[1], -127, 127, "beta", &p->f[1], e);
     },
     [](const Image& in, const RunParams& p, Image* out) -> int32_t {
       *out = sameShape(in);
       return tvxAddWeightedu8(in.pixels.data(), in.width, in.height, in.stride(), in.pixels.data(), in.stride(),
                               p.f[0], p.f[1], out->pixels.data(), out->stride());
     }},
    {"tvxConvertDepthu8s16", "up down", "to s16 << up, back to u8 >> down (tvxConvertDepths16u8, saturating)",
     2, 2, 1, {TVX_ROW_tvxConvertDepthu8s16, TVX_ROW_tvxConvertDepths16u8},
     [](const Args& a, RunParams* p, std::string* e) {
       return parseInt(a[0], 0, 8, "up", &p->i[0], e) && parseInt(a[1], 0, 8, "down", &p->i[1], e);
     },
     [](const Image& in, const RunParams& p, Image* out) -> int32_t {
       std::vector<int16_t> wide(size_t(in.width) * in.height);
       const uint32_t wideStride = in.width * sizeof(int16_t);
       int32_t status = tvxConvertDepthu8s16(in.pixels.data(), in.width, in.height, in.stride(), p.i[0],
                                             wide.data(), wideStride);
       if (status != 0) return status;
       *out = sameShape(in);
       return tvxConvertDepths16u8(wide.data(), in.width, in.height, wideStride, p.i[1],
                                   TVX_CONVERT_POLICY_SATURATE, out->pixels.data(), out->stride());
     }},
};

const RunOp* findOp(const std::string& name) {
  for (const RunOp& op : kRunOps) {
    if (name == op.name) return &op;
  }
  return nullptr;
}

int usageError(const std::string& message) {
  std::fprintf(stderr, "tavix run: %s\n", message.c_str());
  return kExitUsage;
}

// Puts the operation's rows on the requested tier (-1 keeps the mode's choice) and checks that
// every row has a variant to call there.
bool selectTier(const RunOp& op, int tier, std::string* error) {
  for (uint32_t row : op.rows) {
    if (row == 0) break;
    if (tier >= 0) tvxImplTable[row] = static_cast<uint32_t>(tier);
    if (tvxFuncTable[row][tvxImplTable[row]] == nullptr) {
      *error = std::string(op.name) + ": no " + tvxImplChar[tvxImplTable[row]] + " variant is built for row " +
               std::to_string(row);
      return false;
    }
  }
  return true;
}

const char* channelName(uint32_t channels) { return channels == 1 ? "grey" : "RGB"; }

}  // namespace

std::string runUsage() {
  std::string text;
  for (const RunOp& op : kRunOps) {
    char line[256];
    std::snprintf(line, sizeof line, "  %-22s %-11s %s\n", op.name, op.argsUsage, op.doc);
    text += line;
  }
  return text;
}

int runCommand(const Args& args) {
  size_t first = 0;
  int tier = -1;
  if (!args.empty() && args[0] == "--tier") {
    if (args.size() < 2) return usageError("--tier needs cpu or lanes");
    if (args[1] == "cpu") tier = TVX_IMPL_CPU;
    else if (args[1] == "lanes") tier = TVX_IMPL_LANES;
    else return usageError("--tier must be cpu or lanes, got '" + args[1] + "'");
    first = 2;
  }
  if (args.size() < first + 3) return usageError("needs OP in out [args]; see `tavix help`");
  const std::string& name = args[first];
  const std::string& inPath = args[first + 1];
  const std::string& outPath = args[first + 2];
  const Args opArgs(args.begin() + static_cast<long>(first) + 3, args.end());

  const RunOp* op = findOp(name);
  if (!op) return usageError("unknown operation '" + name + "'; supported:\n" + runUsage());
  if (opArgs.size() < op->minArgs || opArgs.size() > op->maxArgs) {
    return usageError(std::string("usage: tavix run ") + op->name + " in out " + op->argsUsage);
  }
  RunParams params;
  std::string error;
  if (!op->parse(opArgs, &params, &error)) return usageError(std::string(op->name) + ": " + error);
  if (!canSaveImage(outPath)) return usageError("cannot write '" + outPath + "': use .png, .jpg, .bmp, .tga, .pgm or .ppm");

  Image in, out;
  if (!loadImage(inPath, op->channels, &in, &error) || !selectTier(*op, tier, &error)) {
    std::fprintf(stderr, "tavix run: %s\n", error.c_str());
    return kExitFailed;
  }
  const int32_t status = op->apply(in, params, &out);
  if (status != 0) {
    std::fprintf(stderr, "tavix run: %s returned status %d\n", op->name, status);
    return kExitFailed;
  }
  if (!saveImage(outPath, out, &error)) {
    std::fprintf(stderr, "tavix run: %s\n", error.c_str());
    return kExitFailed;
  }
  std::printf("%s on %s: %ux%u %s -> %s (%ux%u %s)\n", op->name, tvxImplChar[tvxImplTable[op->rows[0]]], in.width,
              in.height, channelName(in.channels), outPath.c_str(), out.width, out.height, channelName(out.channels));
  return kExitOk;
}
