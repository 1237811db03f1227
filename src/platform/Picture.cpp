#include "platform/Picture.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/GlibHandles.h"

namespace kavaro {

namespace {

constexpr int kComponents = 4, kBitsOfComponent = 8;

struct PixbufUnref {
    void operator()(GdkPixbuf* pixbuf) const { g_object_unref(pixbuf); }
};
using PixbufRef = std::unique_ptr<GdkPixbuf, PixbufUnref>;

// Copies the rows, which the library pads.
Picture pictureOf(const GdkPixbuf* pixbuf) {
    const int width = gdk_pixbuf_get_width(pixbuf), height = gdk_pixbuf_get_height(pixbuf);
    const auto rowBytes = static_cast<std::size_t>(width) * kComponents;
    const auto stride = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(pixbuf));
    const guint8* source = gdk_pixbuf_read_pixels(pixbuf);
    std::vector<std::uint8_t> pixels(rowBytes * static_cast<std::size_t>(height));
    for (std::size_t row = 0; row < static_cast<std::size_t>(height); ++row) {
        std::memcpy(pixels.data() + row * rowBytes, source + row * stride, rowBytes);
    }
    return Picture(width, height, std::move(pixels));
}

// Borrows the picture's pixels.
PixbufRef pixbufOf(const Picture& picture) {
    return PixbufRef(gdk_pixbuf_new_from_data(picture.pixels().data(), GDK_COLORSPACE_RGB, TRUE, kBitsOfComponent,
                                              picture.width(), picture.height(), picture.width() * kComponents, nullptr,
                                              nullptr));
}

}  // namespace

Picture::Picture(int width, int height, std::vector<std::uint8_t> pixels)
    : _width(width), _height(height), _pixels(std::move(pixels)) {}

std::optional<Picture> Picture::load(const std::string& path, std::string* error) {
    const auto fail = [&](const std::string& reason) {
        if (error) *error = reason;
        return std::optional<Picture>();
    };
    int width = 0, height = 0;
    if (gdk_pixbuf_get_file_info(path.c_str(), &width, &height) &&
        (width < 1 || height < 1 || width > kLargest || height > kLargest)) {
        return fail(std::to_string(width) + " x " + std::to_string(height) + " pixels are too many");
    }
    ErrorSlot problem;
    const PixbufRef pixbuf(gdk_pixbuf_new_from_file(path.c_str(), problem));
    if (!pixbuf) return fail(problem.message());
    const PixbufRef withAlpha(gdk_pixbuf_add_alpha(pixbuf.get(), FALSE, 0, 0, 0));
    if (!withAlpha) return fail("no memory");
    return pictureOf(withAlpha.get());
}

Picture Picture::scaledToWidth(int width) const {
    width = std::clamp(width, 1, kLargest);
    const int height = std::clamp((_height * width + _width / 2) / _width, 1, kLargest);
    const PixbufRef scaled(gdk_pixbuf_scale_simple(pixbufOf(*this).get(), width, height, GDK_INTERP_HYPER));
    return scaled ? pictureOf(scaled.get()) : *this;
}

std::string Picture::writePNG(const std::string& path) const {
    ErrorSlot problem;
    if (gdk_pixbuf_save(pixbufOf(*this).get(), path.c_str(), "png", problem, "compression", "9", nullptr)) return {};
    return problem.message();
}

}  // namespace kavaro
