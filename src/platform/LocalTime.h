#pragma once

#include <string>

namespace kavaro {

// A moment in a time zone. Everything here is safe from any thread.
struct LocalTime {
    double secondsSince1970 = 0;  // UTC
    // A name ("Europe/Berlin") or a rule ("CET-1CEST,M3.5.0,M10.5.0/3"). Empty: the process's own, by TZ or else the
    // system's. One that is not known counts as UTC.
    std::string zone;

    static LocalTime now();
};

struct CalendarDay {
    int year = 1970, month = 1, day = 1;
    bool operator==(const CalendarDay&) const = default;
};
// The day that a calendar on the wall shows. Moments outside the years 1 to 9999 count as the nearest inside.
CalendarDay calendarDay(const LocalTime& time);
// The first moment of that day in seconds since 1970: 00:00 but where clocks are put forward at midnight.
double startOfDay(const LocalTime& time);

}  // namespace kavaro
