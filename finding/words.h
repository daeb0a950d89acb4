// Numbers, sizes, spans and times for people. The report's page does the same for its charts.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace corvane {

inline constexpr std::int64_t kMinute = 60;  // seconds
inline constexpr std::int64_t kHour = 60 * kMinute;
inline constexpr std::int64_t kDay = 24 * kHour;

// Each 1,024 times the one before.
inline constexpr std::array kSizeUnits{"KB", "MB", "GB", "TB", "PB", "EB"};

// Thousands separated by commas; below 100 with up to two decimals: "1,234,568", "1.5".
std::string number_text(double number);

// "1 client", "12,345 clients".
std::string counted(std::int64_t number, const std::string& one, const std::string& many);

// "1.2 GB"; `kilobytes` are of 1024 bytes. "-" for a negative number.
std::string size_text(double kilobytes);

// "45 s", "12 min", "3 h 20 min", "12 d 3 h".
std::string span_text(std::int64_t seconds);

// "2026-01-31 04:05 UTC"; `seconds` since the epoch. "an unknown time" for 0 or less.
std::string utc_text(std::int64_t seconds);

// A time as strftime() formats it; empty for 0 or less, and beyond the year 9999.
std::string formatted_time(std::int64_t seconds, bool utc, const char* format);

}  // namespace corvane
