#pragma once

#include <cstdint>
#include <string>

// Durations and time stamps of the engine, in microseconds.
class DRAVDuration
{
public:
    constexpr DRAVDuration() = default;
    constexpr explicit DRAVDuration(int64_t microseconds) : value_(microseconds) {}

    constexpr int64_t Get() const { return value_; }
    constexpr void Set(int64_t microseconds) { value_ = microseconds; }

    // Scaling is done in double and truncated toward zero.
    DRAVDuration operator*(double factor) const { return DRAVDuration(static_cast<int64_t>(value_ * factor)); }
    DRAVDuration operator/(double divisor) const { return DRAVDuration(static_cast<int64_t>(value_ / divisor)); }
    DRAVDuration& operator*=(double factor) { return *this = *this * factor; }
    DRAVDuration& operator/=(double divisor) { return *this = *this / divisor; }
    constexpr DRAVDuration operator+(DRAVDuration other) const { return DRAVDuration(value_ + other.value_); }
    constexpr DRAVDuration operator-(DRAVDuration other) const { return DRAVDuration(value_ - other.value_); }
    constexpr DRAVDuration& operator+=(DRAVDuration other)
    {
        value_ += other.value_;
        return *this;
    }
    constexpr DRAVDuration& operator-=(DRAVDuration other)
    {
        value_ -= other.value_;
        return *this;
    }
    constexpr auto operator<=>(const DRAVDuration&) const = default;

    static constexpr DRAVDuration OneMillisecond() { return DRAVDuration(1000); }
    static constexpr DRAVDuration OneSecond() { return DRAVDuration(1000000); }
    static constexpr DRAVDuration TenSeconds() { return DRAVDuration(10000000); }
    static constexpr DRAVDuration ThirtySeconds() { return DRAVDuration(30000000); }
    static constexpr DRAVDuration OneMinute() { return DRAVDuration(60000000); }
    static constexpr DRAVDuration TenMinutes() { return DRAVDuration(600000000); }
    static constexpr DRAVDuration OneHour() { return DRAVDuration(3600000000LL); }
    static constexpr DRAVDuration OneDay() { return DRAVDuration(86400000000LL); }
    static constexpr DRAVDuration Forever() { return DRAVDuration(0x7fffffffffffffffLL); }

private:
    int64_t value_ = 0;
};

inline DRAVDuration operator*(double factor, DRAVDuration duration)
{
    return duration * factor;
}

// A point in host time. Negative (conventionally -1) means none.
class DRAVTimestamp
{
public:
    constexpr DRAVTimestamp() = default;
    constexpr explicit DRAVTimestamp(int64_t microseconds) : value_(microseconds) {}

    constexpr int64_t Get() const { return value_; }
    constexpr void Set(int64_t microseconds) { value_ = microseconds; }
    constexpr bool IsValid() const { return value_ >= 0; }

    constexpr DRAVTimestamp operator+(DRAVDuration d) const { return DRAVTimestamp(value_ + d.Get()); }
    constexpr DRAVTimestamp operator-(DRAVDuration d) const { return DRAVTimestamp(value_ - d.Get()); }
    constexpr DRAVDuration operator-(DRAVTimestamp other) const { return DRAVDuration(value_ - other.value_); }
    constexpr DRAVTimestamp& operator+=(DRAVDuration d)
    {
        value_ += d.Get();
        return *this;
    }
    constexpr DRAVTimestamp& operator-=(DRAVDuration d)
    {
        value_ -= d.Get();
        return *this;
    }
    constexpr auto operator<=>(const DRAVTimestamp&) const = default;

    // "%s%02d:%02d:%02d.%03d": sign, hours modulo 24, minutes, seconds, milliseconds.
    std::string ToString() const { return ToStringMilliseconds(); }
    std::string ToStringMilliseconds() const;
    std::string ToStringSeconds() const;

private:
    int64_t value_ = -1;
};

// The monotonic clock in microseconds.
int64_t DRAVGetMonotonicMicroseconds();
// Host time: the monotonic clock less its value at library load, so that it
// starts near 0. Frame time stamps of the engine are in host time.
DRAVTimestamp DRAVGetHostTime();
