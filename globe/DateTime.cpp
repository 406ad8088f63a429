#include <globe/DateTime>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace globe
{

namespace
{

constexpr int kMinYear = -4000;
constexpr int kMaxYear = 100000;
// Julian date of 1970-01-01 00:00 UTC.
constexpr double kUnixEpochJulianDay = 2440587.5;

long long floorDiv(long long a, long long b)
{
    long long q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0)))
        --q;
    return q;
}

// Days since 1970-01-01 of a proleptic Gregorian date (exact integer
// arithmetic in 400-year eras, valid for negative years too).
long long daysFromCivil(long long y, long long m, long long d)
{
    y -= m <= 2 ? 1 : 0;
    const long long era = floorDiv(y, 400);
    const long long yoe = y - era * 400;
    const long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civilFromDays(long long z, int& year, int& month, int& day)
{
    z += 719468;
    const long long era = floorDiv(z, 146097);
    const long long doe = z - era * 146097;
    const long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const long long mp = (5 * doy + 2) / 153;
    day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    year = static_cast<int>(yoe + era * 400 + (month <= 2 ? 1 : 0));
}

// Whole seconds of the day in an hour count. Hours made from whole seconds
// (s / 3600.0) come back a hair under s when multiplied out again, so a
// micro-second of slack keeps them whole instead of dropping a second.
long long secondsOfDay(double hours)
{
    return std::min(static_cast<long long>(std::floor(hours * 3600.0 + 1e-6)), 86399LL);
}

} // namespace

DateTime::DateTime()
    : DateTime(std::time(nullptr))
{
}

DateTime::DateTime(int year, int month, int day, double hours)
{
    long long y = std::clamp(year, kMinYear, kMaxYear);
    // Month 13 is January of the next year, month 0 December of the year before.
    const long long m0 = static_cast<long long>(month) - 1;
    y += floorDiv(m0, 12);
    const long long m = m0 - floorDiv(m0, 12) * 12 + 1;
    const long long days = daysFromCivil(y, m, 1) + (static_cast<long long>(day) - 1);
    setFromDays(days, hours);
}

DateTime::DateTime(std::time_t utcSeconds)
{
    const long long seconds = static_cast<long long>(utcSeconds);
    const long long days = floorDiv(seconds, 86400);
    setFromDays(days, static_cast<double>(seconds - days * 86400) / 3600.0);
}

DateTime::~DateTime() = default;

void DateTime::setFromDays(long long days, double hours)
{
    if (!std::isfinite(hours))
        hours = 0.0;
    // Carry whole days out of the hour count; a bound keeps the arithmetic
    // finite for absurd inputs (the year clamp below applies anyway).
    const double wholeDays = std::clamp(std::floor(hours / 24.0), -1.0e8, 1.0e8);
    hours -= wholeDays * 24.0;
    if (hours >= 24.0 || hours < 0.0) // |hours| was beyond the bound
        hours = 0.0;
    days += static_cast<long long>(wholeDays);

    const long long minDays = daysFromCivil(kMinYear, 1, 1);
    const long long maxDays = daysFromCivil(kMaxYear, 12, 31);
    if (days < minDays)
    {
        days = minDays;
        hours = 0.0;
    }
    else if (days > maxDays)
    {
        days = maxDays;
        hours = std::nextafter(24.0, 0.0);
    }
    civilFromDays(days, _year, _month, _day);
    _hours = hours;
}

double DateTime::getJulianDay() const
{
    const long long days = daysFromCivil(_year, _month, _day);
    return static_cast<double>(days) + kUnixEpochJulianDay + _hours / 24.0;
}

double DateTime::getDaysSinceJ2000() const
{
    // Integer days first, so that the fraction of the day keeps full precision.
    const long long days = daysFromCivil(_year, _month, _day) - daysFromCivil(2000, 1, 1);
    return static_cast<double>(days) - 0.5 + _hours / 24.0;
}

std::time_t DateTime::asTimeStamp() const
{
    const long long days = daysFromCivil(_year, _month, _day);
    return static_cast<std::time_t>(days * 86400 + secondsOfDay(_hours));
}

std::string DateTime::asISO8601() const
{
    const long long seconds = secondsOfDay(_hours);
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02lld:%02lld:%02lldZ", _year, _month, _day,
                  seconds / 3600, (seconds / 60) % 60, seconds % 60);
    return text;
}

bool DateTime::operator==(const DateTime& rhs) const
{
    return _year == rhs._year && _month == rhs._month && _day == rhs._day && _hours == rhs._hours;
}

} // namespace globe
