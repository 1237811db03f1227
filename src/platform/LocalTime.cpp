#include "platform/LocalTime.h"

#include <glib.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "platform/Clock.h"

namespace kavaro {

namespace {

constexpr std::int64_t kFirstSecond = -62135510400;  // a day after the year 1 begins in UTC: inside it in every zone
constexpr std::int64_t kLastSecond = 253402214400;   // a day before the year 10000
constexpr std::int64_t kLongestStep = 2 * 3600;      // no zone has put its clocks back by more
constexpr std::int64_t kSmallestStep = 20 * 60;

struct Unref {
    void operator()(GDateTime* time) const { g_date_time_unref(time); }
    void operator()(GTimeZone* zone) const { g_time_zone_unref(zone); }
};
using Moment = std::unique_ptr<GDateTime, Unref>;
using Zone = std::unique_ptr<GTimeZone, Unref>;

Zone zoneNamed(const std::string& name) {
    GTimeZone* zone = name.empty() ? g_time_zone_new_local() : g_time_zone_new_identifier(name.c_str());
    return Zone(zone ? zone : g_time_zone_new_utc());
}

std::int64_t wholeSeconds(double seconds) {
    if (std::isnan(seconds)) return 0;
    const double clamped = std::clamp(seconds, static_cast<double>(kFirstSecond), static_cast<double>(kLastSecond));
    return static_cast<std::int64_t>(std::floor(clamped));
}

CalendarDay dayOf(std::int64_t second, GTimeZone* zone) {
    const Moment utc(g_date_time_new_from_unix_utc(second));
    const Moment local(g_date_time_to_timezone(utc.get(), zone));
    CalendarDay day;
    g_date_time_get_ymd(local.get(), &day.year, &day.month, &day.day);
    return day;
}

}  // namespace

LocalTime LocalTime::now() {
    return {Clock::system().wallSeconds(), ""};
}

CalendarDay calendarDay(const LocalTime& time) {
    return dayOf(wholeSeconds(time.secondsSince1970), zoneNamed(time.zone).get());
}

double startOfDay(const LocalTime& time) {
    const Zone zone = zoneNamed(time.zone);
    const std::int64_t now = wholeSeconds(time.secondsSince1970);
    const CalendarDay today = dayOf(now, zone.get());
    const Moment midnight(g_date_time_new(zone.get(), today.year, today.month, today.day, 0, 0, 0));
    std::int64_t start = g_date_time_to_unix(midnight.get());
    // Where midnight comes twice, the first one counts.
    for (std::int64_t step = kSmallestStep; step <= kLongestStep; step += kSmallestStep) {
        if (dayOf(start - step, zone.get()) == today) {
            start -= step;
            step = 0;
        }
    }
    return static_cast<double>(start);
}

}  // namespace kavaro
