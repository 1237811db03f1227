#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kavaro {

// A small picture in memory. A value; any thread.
class Picture {
  public:
    static constexpr int kLargest = 4096;  // pixels in width or height

    // `pixels`: rows from the top, each pixel red, green, blue and alpha, a byte each.
    // REQUIRES: 1 <= width, height <= kLargest, pixels.size() == 4 * width * height.
    Picture(int width, int height, std::vector<std::uint8_t> pixels);
    // Of a PNG file. Nothing, and the reason in `error`, when it cannot be read, is no picture or too large.
    static std::optional<Picture> load(const std::string& path, std::string* error = nullptr);

    int width() const { return _width; }
    int height() const { return _height; }
    const std::vector<std::uint8_t>& pixels() const { return _pixels; }
    bool operator==(const Picture&) const = default;

    Picture scaledToWidth(int width) const;               // in proportion
    std::string writePNG(const std::string& path) const;  // why it failed; empty on success

  private:
    int _width, _height;
    std::vector<std::uint8_t> _pixels;
};

}  // namespace kavaro
