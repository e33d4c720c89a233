// Image files through stb (every format it reads; png, bmp, tga and jpg written) plus a
// binary PGM/PPM writer, whose output stb reads back.
#include "image_file.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image.h>
#include <stb/stb_image_write.h>

namespace {

std::string extension(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return "";
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  return ext;
}

bool isPnm(const std::string& ext) { return ext == "pgm" || ext == "ppm" || ext == "pnm"; }

bool savePnm(const std::string& path, const Image& image) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  std::fprintf(f, "P%c\n%u %u\n255\n", image.channels == 1 ? '5' : '6', image.width, image.height);
  const bool written = std::fwrite(image.pixels.data(), 1, image.pixels.size(), f) == image.pixels.size();
  return std::fclose(f) == 0 && written;
}

}  // namespace

bool loadImage(const std::string& path, uint32_t channels, Image* image, std::string* error) {
  int w = 0, h = 0, fileChannels = 0;
  stbi_uc* data = stbi_load(path.c_str(), &w, &h, &fileChannels, static_cast<int>(channels));
  if (!data) {
    *error = "cannot read " + path + ": " + stbi_failure_reason();
    return false;
  }
  *image = Image(static_cast<uint32_t>(w), static_cast<uint32_t>(h), channels);
  std::memcpy(image->pixels.data(), data, image->pixels.size());
  stbi_image_free(data);
  return true;
}

bool canSaveImage(const std::string& path) {
  const std::string ext = extension(path);
  return ext == "png" || ext == "bmp" || ext == "tga" || ext == "jpg" || ext == "jpeg" || isPnm(ext);
}

bool saveImage(const std::string& path, const Image& image, std::string* error) {
  const std::string ext = extension(path);
  const int w = static_cast<int>(image.width), h = static_cast<int>(image.height);
  const int c = static_cast<int>(image.channels);
  const uint8_t* p = image.pixels.data();
  bool ok = false;
  if (ext == "png") ok = stbi_write_png(path.c_str(), w, h, c, p, w * c) != 0;
  else if (ext == "bmp") ok = stbi_write_bmp(path.c_str(), w, h, c, p) != 0;
  else if (ext == "tga") ok = stbi_write_tga(path.c_str(), w, h, c, p) != 0;
  else if (ext == "jpg" || ext == "jpeg") ok = stbi_write_jpg(path.c_str(), w, h, c, p, 95) != 0;
  else if (isPnm(ext)) ok = savePnm(path, image);
  if (!ok) *error = "cannot write " + path;
  return ok;
}
