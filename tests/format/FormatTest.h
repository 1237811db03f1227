#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "format/FormatLog.h"
#include "format/TuvNodeFormatter.h"
#include "model/ModelTest.h"
#include "platform/Picture.h"
#include "platform/Resources.h"
#include "platform/UserDefaults.h"

namespace kavaro {

// Captures the formatter's lines from the given level up.
class FormatLogs {
  public:
    explicit FormatLogs(LogLevel level = LogLevel::info) : _capture(level) { tuvNodeFormatterLog.forget(); }
    const LogCapture* operator->() const { return &_capture; }
    LogCapture* operator->() { return &_capture; }
    // "level text" of every line.
    std::vector<std::string> lines() const {
        static constexpr const char* kLevels[] = {"trace", "debug", "info", "error", "off"};
        std::vector<std::string> lines;
        for (const LogCapture::Line& line : _capture.lines()) {
            EXPECT_EQ(line.component, "TuvNodeFormatter") << line.text;
            lines.push_back(std::string(kLevels[static_cast<int>(line.level)]) + " " + line.text);
        }
        return lines;
    }

  private:
    LogCapture _capture;
};

// A user with that language and no other.
class UserOf : public ScopedEnvironment {
  public:
    explicit UserOf(const std::string& locale) {
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANGUAGE"}) set(name, "");
        set("LANG", locale);
    }
};

// Resources whose flags are pictures of one pixel.
class FlagResources {
  public:
    explicit FlagResources(const std::vector<std::string>& files) {
        _folder.makeFolder("48_countryName");
        for (const std::string& file : files) {
            EXPECT_EQ(Picture(1, 1, {1, 2, 3, 255}).writePNG(_folder.path("48_countryName/" + file)), "") << file;
        }
        setResourcesFolder(_folder.path());
    }
    const TempFolder& folder() const { return _folder; }

  private:
    TempFolder _folder;
};

}  // namespace kavaro
