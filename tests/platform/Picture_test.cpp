#include "platform/Picture.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempFolder.h"
#include "platform/Color.h"

namespace kavaro {
namespace {

Picture plain(int width, int height, const std::vector<std::uint8_t>& pixel) {
    std::vector<std::uint8_t> pixels;
    for (int i = 0; i < width * height; ++i) pixels.insert(pixels.end(), pixel.begin(), pixel.end());
    return Picture(width, height, std::move(pixels));
}

TEST(Picture, comesBackFromItsFile) {
    TempFolder folder;
    std::vector<std::uint8_t> pixels;
    for (int i = 0; i < 3 * 5 * 4; ++i) pixels.push_back(static_cast<std::uint8_t>(i * 4 + 1));
    for (std::size_t i = 3; i < pixels.size(); i += 4) pixels[i] = 255;
    const Picture picture(3, 5, pixels);
    const std::string path = folder.path("a \xff.png");
    ASSERT_EQ(picture.writePNG(path), "");
    const std::optional<Picture> loaded = Picture::load(path);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(*loaded, picture);
}

TEST(Picture, whatCannotBeLoadedSaysWhy) {
    TempFolder folder;
    ASSERT_EQ(plain(8, 8, {1, 2, 3, 255}).writePNG(folder.path("whole.png")), "");
    const std::string whole = folder.read("whole.png");
    folder.write("empty.png", "");
    folder.write("text.png", "no picture at all");
    folder.write("short.png", whole.substr(0, whole.size() / 2));
    std::string huge = whole;
    huge.replace(16, 8, std::string("\0\0\xff\xff\0\0\xff\xff", 8));
    folder.write("huge.png", huge);
    folder.makeFolder("folder.png");
    for (const char* name : {"missing.png", "empty.png", "text.png", "short.png", "huge.png", "folder.png"}) {
        std::string error;
        EXPECT_FALSE(Picture::load(folder.path(name), &error)) << name;
        EXPECT_NE(error, "") << name;
        EXPECT_FALSE(Picture::load(folder.path(name))) << name;
    }
    EXPECT_FALSE(Picture::load(""));
}

TEST(Picture, everyBeginningOfAFileIsSafe) {
    TempFolder folder;
    ASSERT_EQ(plain(8, 8, {1, 2, 3, 255}).writePNG(folder.path("whole.png")), "");
    const std::string whole = folder.read("whole.png");
    for (std::size_t size = 0; size < whole.size() - 12; ++size) {  // the last chunk has nothing in it
        EXPECT_FALSE(Picture::load(folder.write("part.png", whole.substr(0, size)))) << size;
    }
}

TEST(Picture, whatCannotBeWrittenSaysWhy) {
    EXPECT_NE(plain(1, 1, {0, 0, 0, 255}).writePNG("/nowhere/a.png"), "");
}

TEST(Picture, scalesInProportion) {
    const Picture scaled = plain(320, 240, {200, 100, 50, 255}).scaledToWidth(48);
    EXPECT_EQ(scaled.width(), 48);
    EXPECT_EQ(scaled.height(), 36);
    EXPECT_EQ(scaled, plain(48, 36, {200, 100, 50, 255}));
    EXPECT_EQ(plain(100, 1, {0, 0, 0, 255}).scaledToWidth(48).height(), 1);
    EXPECT_EQ(plain(2, 2, {0, 0, 0, 255}).scaledToWidth(48).height(), 48);
    EXPECT_EQ(plain(4, 2, {0, 0, 0, 255}).scaledToWidth(0).width(), 1);
}

TEST(Color, aroundTheCircle) {
    const auto hue = [](float degrees) { return Color::fromHueSaturationBrightness(degrees / 360, 1, 1, 1); };
    EXPECT_EQ(hue(0), (Color{1, 0, 0, 1}));
    EXPECT_EQ(hue(60), (Color{1, 1, 0, 1}));
    EXPECT_EQ(hue(120), (Color{0, 1, 0, 1}));
    EXPECT_EQ(hue(180), (Color{0, 1, 1, 1}));
    EXPECT_EQ(hue(240), (Color{0, 0, 1, 1}));
    EXPECT_EQ(hue(300), (Color{1, 0, 1, 1}));
    EXPECT_EQ(hue(360), (Color{1, 0, 0, 1}));
    EXPECT_NEAR(hue(30).green, 0.5, 1e-6);
    EXPECT_NEAR(hue(90).red, 0.5, 1e-6);
    EXPECT_NEAR(hue(150).blue, 0.5, 1e-6);
    EXPECT_NEAR(hue(210).green, 0.5, 1e-6);
    EXPECT_NEAR(hue(270).red, 0.5, 1e-6);
    EXPECT_NEAR(hue(330).blue, 0.5, 1e-6);
}

TEST(Color, lessSaturationAndBrightness) {
    EXPECT_EQ(Color::fromHueSaturationBrightness(0.3f, 0, 0.5f, 0.25f), (Color{0.5f, 0.5f, 0.5f, 0.25f}));
    EXPECT_EQ(Color::fromHueSaturationBrightness(0.3f, 1, 0, 1), (Color{0, 0, 0, 1}));
    EXPECT_EQ(Color::fromHueSaturationBrightness(0, 0.5f, 1, 1), (Color{1, 0.5f, 0.5f, 1}));
}

TEST(Color, whatLiesOutsideIsTheNearerEnd) {
    EXPECT_EQ(Color::fromHueSaturationBrightness(1.5f, 2, 7, 1), (Color{1, 0, 0, 1}));
    EXPECT_EQ(Color::fromHueSaturationBrightness(-0.5f, 1, 1, 1), (Color{1, 0, 0, 1}));
}

}  // namespace
}  // namespace kavaro
