#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "LoggedMessage.h"

namespace {

constexpr std::int64_t kMsPerMinute = 60'000;
constexpr std::string_view kNarrowBlank = "\xe2\x80\xaf";  // what Windows writes before AM and PM of late

bool IsDigit(char letter) { return letter >= '0' && letter <= '9'; }
bool IsLetterOrDigit(char letter) {
  return IsDigit(letter) || (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
}

// How much is allowed to stand otherwise than a program of ours writes it.
enum class Form { kIso, kAny };

// Reads a text from its start; what a call did not find is not taken.
class TimeReader {
 public:
  TimeReader(std::string_view text, Form form) : m_rest(text), m_form(form) {}

  std::optional<LogTime> Read() {
    std::chrono::year_month_day date;
    if (!ReadDate(date) || !TakeSeparator()) return std::nullopt;
    std::int64_t milliseconds = 0;
    if (!ReadClock(milliseconds)) return std::nullopt;
    LogTime time;
    const std::chrono::milliseconds days = std::chrono::sys_days(date).time_since_epoch();
    time.localMs = days.count() + milliseconds;
    time.offsetMinutes = ReadOffset();
    return time;
  }
  bool IsAtEnd() const { return m_rest.empty(); }

 private:
  char Next(std::size_t ahead = 0) const { return ahead < m_rest.size() ? m_rest[ahead] : '\0'; }
  bool Take(char letter) {
    if (Next() != letter) return false;
    m_rest.remove_prefix(1);
    return true;
  }
  // A number of so many digits, and no more. Returns how many; 0 for none.
  std::size_t TakeNumber(std::size_t least, std::size_t most, int& number) {
    std::size_t digits = 0;
    int value = 0;
    for (; IsDigit(Next(digits)); ++digits) {
      if (digits == most) return 0;
      value = value * 10 + (Next(digits) - '0');
    }
    if (digits < least) return 0;
    number = value;
    m_rest.remove_prefix(digits);
    return digits;
  }

  // Year first, or day.month.year, or month/day/year. The last is how Windows writes it where English is spoken as in
  // the United States; a log of day/month/year cannot be told from it on most days, so that a date which is none when
  // read in this way is no date, rather than read otherwise than its neighbours.
  bool ReadDate(std::chrono::year_month_day& date) {
    constexpr int kFirstYear = 1970;
    int year = 0;
    int month = 0;
    int day = 0;
    int first = 0;
    const std::size_t digits = TakeNumber(1, 4, first);
    const char separator = Next();
    if (digits == 0 || digits == 3 ||
        (separator != '-' && (m_form == Form::kIso || (separator != '/' && separator != '.'))))
      return false;
    m_rest.remove_prefix(1);
    const std::size_t least = m_form == Form::kIso || separator == '-' ? 2 : 1;
    int second = 0;
    if (TakeNumber(least, 2, second) == 0 || !Take(separator)) return false;
    if (digits == 4) {
      year = first;
      month = second;
      if (TakeNumber(least, 2, day) == 0) return false;
    } else {
      if (separator == '-' || TakeNumber(4, 4, year) == 0) return false;
      month = separator == '/' ? first : second;
      day = separator == '/' ? second : first;
    }
    date = {std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
            std::chrono::day(static_cast<unsigned>(day))};
    return year >= kFirstYear && date.ok();
  }

  bool TakeSeparator() {
    if (Take('T')) return true;
    if (m_form == Form::kIso) return Take(' ');
    constexpr std::size_t kMost = 4;  // as in "] ["
    const std::size_t length = m_rest.find_first_not_of(" \t,;|[]()_-");
    if (length == 0 || length > kMost) return false;
    m_rest.remove_prefix(length);
    return true;
  }

  bool ReadClock(std::int64_t& milliseconds) {
    int hour = 0;
    int minute = 0;
    int second = 0;
    int fraction = 0;
    if (TakeNumber(m_form == Form::kIso ? 2 : 1, 2, hour) == 0 || !Take(':') || TakeNumber(2, 2, minute) == 0)
      return false;
    if (Next() == ':' && IsDigit(Next(1))) {
      m_rest.remove_prefix(1);
      if (TakeNumber(2, 2, second) == 0) return false;
      if ((Next() == '.' || Next() == ',') && IsDigit(Next(1))) {
        m_rest.remove_prefix(1);
        fraction = ReadFraction();
      }
    }
    if (m_form == Form::kAny && !ReadHalfOfDay(hour)) return false;
    // A minute may have a leap second.
    if (hour > 23 || minute > 59 || second > 60) return false;
    milliseconds = (hour * 60LL + minute) * kMsPerMinute + second * 1000LL + fraction;
    return true;
  }

  int ReadFraction() {
    int milliseconds = 0;
    int worth = 100;
    for (; IsDigit(Next()); m_rest.remove_prefix(1), worth /= 10) milliseconds += (Next() - '0') * worth;
    return milliseconds;
  }

  // AM or PM, if one follows. False when the hour is none of a half day.
  bool ReadHalfOfDay(int& hour) {
    std::string_view behind = m_rest;
    if (behind.starts_with(' ')) behind.remove_prefix(1);
    if (behind.starts_with(kNarrowBlank)) behind.remove_prefix(kNarrowBlank.size());
    if (behind.size() < 2 || (behind[1] | 0x20) != 'm' || (behind.size() > 2 && IsLetterOrDigit(behind[2])))
      return true;
    const int half = behind[0] | 0x20;
    if (half != 'a' && half != 'p') return true;
    if (hour < 1 || hour > 12) return false;
    hour = hour % 12 + (half == 'p' ? 12 : 0);
    m_rest = behind.substr(2);
    return true;
  }

  std::optional<int> ReadOffset() {
    if (Next() == 'Z' && !IsLetterOrDigit(Next(1))) {
      m_rest.remove_prefix(1);
      return 0;
    }
    const std::string_view before = m_rest;
    if (m_form == Form::kAny) Take(' ');
    const char sign = Next();
    int hours = 0;
    int minutes = 0;
    const auto read = [&] {
      if (!Take('+') && !Take('-')) return false;
      if (TakeNumber(4, 4, minutes) != 0) {
        hours = minutes / 100;
        minutes %= 100;
      } else if (TakeNumber(2, 2, hours) == 0 || !Take(':') || TakeNumber(2, 2, minutes) == 0) {
        return false;
      }
      return hours < 24 && minutes < 60;
    };
    if (!read()) {
      m_rest = before;
      return std::nullopt;
    }
    return (sign == '-' ? -1 : 1) * (hours * 60 + minutes);
  }

  std::string_view m_rest;
  Form m_form;
};

std::int64_t UniversalMs(const LogTime& time) { return time.localMs - time.offsetMinutes.value_or(0) * kMsPerMinute; }

}  // namespace

std::strong_ordering LogTime::Compare(const LogTime& left, const LogTime& right) noexcept {
  return MillisecondsBetween(right, left) <=> 0;
}

std::int64_t LogTime::MillisecondsBetween(const LogTime& from, const LogTime& to) noexcept {
  const bool bothTell = from.offsetMinutes && to.offsetMinutes;
  return bothTell ? UniversalMs(to) - UniversalMs(from) : to.localMs - from.localMs;
}

std::string ToText(const LogTime& time) {
  using namespace std::chrono;
  const sys_time<milliseconds> clock{milliseconds(time.localMs)};
  const auto day = floor<days>(clock);
  const year_month_day date(day);
  const hh_mm_ss inDay(clock - day);
  char text[64];
  static_cast<void>(std::snprintf(text, std::size(text), "%04d-%02u-%02uT%02d:%02d:%02d.%03d",
                                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                                  static_cast<unsigned>(date.day()), static_cast<int>(inDay.hours().count()),
                                  static_cast<int>(inDay.minutes().count()), static_cast<int>(inDay.seconds().count()),
                                  static_cast<int>(inDay.subseconds().count())));
  std::string result = text;
  if (!time.offsetMinutes) return result;
  const int minutes = std::abs(*time.offsetMinutes);
  static_cast<void>(std::snprintf(text, std::size(text), "%c%02d:%02d", *time.offsetMinutes < 0 ? '-' : '+',
                                  minutes / 60, minutes % 60));
  return result + text;
}

std::optional<LogTime> ParseLogTime(std::string_view text) {
  TimeReader reader(text, Form::kIso);
  std::optional<LogTime> time = reader.Read();
  return reader.IsAtEnd() ? time : std::nullopt;
}

std::optional<LogTime> FindLogTime(std::string_view text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!IsDigit(text[at])) continue;
    // Not in the middle of a number, a version or an address.
    const char before = at > 0 ? text[at - 1] : '\0';
    const bool isInside = (before == '.' || before == '/' || before == '-') && at > 1 && IsDigit(text[at - 2]);
    if (!isInside) {
      if (const std::optional<LogTime> time = TimeReader(text.substr(at), Form::kAny).Read()) return time;
    }
    while (at + 1 < text.size() && IsDigit(text[at + 1])) ++at;
  }
  return std::nullopt;
}
