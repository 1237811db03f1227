#include "platform/LocalTime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>

#include "ScopedEnvironment.h"
#include "platform/Clock.h"

namespace kavaro {

std::ostream& operator<<(std::ostream& out, const CalendarDay& day) {
    return out << day.year << "-" << day.month << "-" << day.day;
}

namespace {

TEST(LocalTime, daysInUTC) {
    EXPECT_EQ(calendarDay({0, "UTC"}), (CalendarDay{1970, 1, 1}));
    EXPECT_EQ(calendarDay({-0.001, "UTC"}), (CalendarDay{1969, 12, 31}));
    EXPECT_EQ(calendarDay({1709164799.999, "UTC"}), (CalendarDay{2024, 2, 28}));
    EXPECT_EQ(calendarDay({1709164800, "UTC"}), (CalendarDay{2024, 2, 29}));
    EXPECT_EQ(startOfDay({1709164800, "UTC"}), 1709164800);
    EXPECT_EQ(startOfDay({1709251199.9, "UTC"}), 1709164800);
    EXPECT_EQ(startOfDay({-1, "UTC"}), -86400);
}

TEST(LocalTime, theSameMomentOnOtherWalls) {
    constexpr double kMoment = 1773270000;  // 2026-03-11 23:00 UTC
    EXPECT_EQ(calendarDay({kMoment, "Europe/Berlin"}), (CalendarDay{2026, 3, 12}));
    EXPECT_EQ(calendarDay({kMoment, "America/New_York"}), (CalendarDay{2026, 3, 11}));
    EXPECT_EQ(startOfDay({kMoment, "Europe/Berlin"}), kMoment);
    EXPECT_EQ(startOfDay({kMoment - 1, "Europe/Berlin"}), kMoment - 86400);
    EXPECT_EQ(startOfDay({kMoment, "Asia/Kathmandu"}), kMoment - (4 * 60 + 45) * 60);
}

TEST(LocalTime, summerTimeBeginsAndEnds) {
    // 2026-03-29: 02:00 becomes 03:00. Midnight is 2026-03-28 23:00 UTC before and after that.
    for (const double hour : {0.0, 0.5, 1.0, 5.0, 22.9})
        EXPECT_EQ(startOfDay({1774738800 + hour * 3600, "Europe/Berlin"}), 1774738800) << hour;
    EXPECT_EQ(startOfDay({1774738800 + 23 * 3600, "Europe/Berlin"}), 1774738800 + 23 * 3600);  // a day of 23 hours
    // 2026-10-25: 03:00 becomes 02:00; a day of 25 hours.
    for (const double hour : {0.0, 2.5, 3.5, 24.9})
        EXPECT_EQ(startOfDay({1792879200 + hour * 3600, "Europe/Berlin"}), 1792879200) << hour;
    EXPECT_EQ(startOfDay({1792879200 + 25 * 3600, "Europe/Berlin"}), 1792879200 + 25 * 3600);
}

TEST(LocalTime, aDayWithoutMidnight) {
    // Sao Paulo, 2017-10-15: 00:00 became 01:00, at 03:00 UTC.
    EXPECT_EQ(startOfDay({1508040000 + 50000, "America/Sao_Paulo"}), 1508036400);
    EXPECT_EQ(calendarDay({1508036400 - 1, "America/Sao_Paulo"}), (CalendarDay{2017, 10, 14}));
    EXPECT_EQ(calendarDay({1508036400, "America/Sao_Paulo"}), (CalendarDay{2017, 10, 15}));
}

TEST(LocalTime, aDayWithTwoMidnights) {
    // Havana, 2017-11-05: 01:00 became 00:00, at 05:00 UTC. The day begins at 04:00 UTC.
    for (const double moment : {1509854400.0, 1509857999.0, 1509858000.0, 1509861600.0, 1509900000.0})
        EXPECT_EQ(startOfDay({moment, "America/Havana"}), 1509854400) << moment - 1509854400;
    EXPECT_EQ(calendarDay({1509854400 - 1, "America/Havana"}), (CalendarDay{2017, 11, 4}));
}

// Every eighth hour of some years in zones of all kinds: the day holds the moment, begins with its first second, and is
// the same for all its hours, which shift from day to day.
TEST(LocalTime, everyDayIsOnePiece) {
    for (const char* zone : {"UTC", "Europe/Berlin", "America/Havana", "America/Sao_Paulo", "Australia/Lord_Howe",
                             "Asia/Kathmandu", "Africa/Casablanca", "Pacific/Apia", "CET-1CEST,M3.5.0,M10.5.0/3"}) {
        double start = 0;
        for (double moment = 1293840000; moment < 1293840000 + 2.1 * 365 * 86400; moment += 28799) {
            const double day = startOfDay({moment, zone});
            ASSERT_LE(day, moment) << zone;
            ASSERT_EQ(calendarDay({day, zone}), calendarDay({moment, zone})) << zone;
            if (day == start) continue;
            ASSERT_NE(calendarDay({day - 1, zone}), calendarDay({day, zone})) << zone << " " << moment;
            start = day;
        }
    }
}

TEST(LocalTime, rulesAndUnknownZones) {
    EXPECT_EQ(startOfDay({1774738800 + 50000, "CET-1CEST,M3.5.0,M10.5.0/3"}), 1774738800);
    for (const char* zone : {"No/Such", "xyz", "\xff", "../../etc/passwd"})
        EXPECT_EQ(startOfDay({100000, zone}), 86400) << zone;
}

TEST(LocalTime, theProcessesOwnZone) {
    ScopedEnvironment environment;
    for (const auto& [zone, start] : {std::pair("Europe/Berlin", 1773183600), std::pair(":Europe/Berlin", 1773183600),
                                      std::pair("CET-1CEST,M3.5.0,M10.5.0/3", 1773183600), std::pair("UTC", 1773187200),
                                      std::pair("Nowhere/Land", 1773187200), std::pair("", 1773187200)}) {
        environment.set("TZ", zone);
        EXPECT_EQ(startOfDay({1773235800, ""}), start) << zone;
    }
}

TEST(LocalTime, momentsOutOfReach) {
    constexpr double kInfinite = std::numeric_limits<double>::infinity();
    for (const double moment : {1e300, -1e300, kInfinite, -kInfinite, 1e18, -1e18}) {
        EXPECT_EQ(calendarDay({moment, "Asia/Tokyo"}).year, moment > 0 ? 9999 : 1);
        EXPECT_TRUE(std::isfinite(startOfDay({moment, "America/New_York"})));
    }
    EXPECT_EQ(calendarDay({std::nan(""), "UTC"}).year, 1970);
}

TEST(LocalTime, nowIsNow) {
    const double before = Clock::system().wallSeconds();
    const LocalTime now = LocalTime::now();
    EXPECT_GE(now.secondsSince1970, before);
    EXPECT_LE(now.secondsSince1970, Clock::system().wallSeconds());
    EXPECT_EQ(now.zone, "");
}

}  // namespace
}  // namespace kavaro
