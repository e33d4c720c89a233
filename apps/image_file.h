// Reading and writing 8-bit images for the tavix tool.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Image {
  uint32_t width = 0, height = 0, channels = 0;  // channels: 1 grey, 3 RGB; rows packed
  std::vector<uint8_t> pixels;

  Image() = default;
  Image(uint32_t w, uint32_t h, uint32_t c) : width(w), height(h), channels(c), pixels(size_t(w) * h * c) {}
  uint32_t stride() const { return width * channels; }
};

// Loads any file stb_image reads, converted to the channel count asked for (1: luma, 3: RGB).
bool loadImage(const std::string& path, uint32_t channels, Image* image, std::string* error);

// True when the file name ends in an extension saveImage writes.
bool canSaveImage(const std::string& path);
// Writes by extension: .png, .bmp, .tga, .jpg/.jpeg (quality 95), .pgm/.ppm/.pnm (binary).
bool saveImage(const std::string& path, const Image& image, std::string* error);
