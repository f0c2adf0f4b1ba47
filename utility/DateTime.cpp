// Calendar time, the millisecond clock and the millisecond sleep.
#include <Tarn/Generic/DateTime.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace Tarn::Generic {

namespace {

static_assert(sizeof(_SYSTEMTIME) == 16 && sizeof(CDateTime) == 80,
              "hosts construct these themselves");

constexpr uint32_t kSecondsPerDay = 86400;

uint16_t Part(int value) {
  return static_cast<uint16_t>(value);
}

// False, and all zero, when the platform cannot express the seconds.
bool BreakDown(time_t seconds, tm& parts) {
  if (localtime_r(&seconds, &parts) != nullptr) return true;
  memset(&parts, 0, sizeof(parts));
  return false;
}

using Text = char[50];

__attribute__((format(printf, 2, 3))) void Print(Text& text, const char* pattern, ...) {
  va_list args;
  va_start(args, pattern);
  vsnprintf(text, sizeof(text), pattern, args);
  va_end(args);
}

bool Is(const char* format, const char* keyword) {
  return strcmp(format, keyword) == 0;
}

// Differences wrap, as those of any two seconds do on this platform.
long Difference(long a, long b) {
  return static_cast<long>(static_cast<unsigned long>(a) - static_cast<unsigned long>(b));
}

}  // namespace

CDateTime::CDateTime() : m_szText(), m_seconds(0) {
  GetLocalTime(&m_time);
  ToString(nullptr);
}

CDateTime::CDateTime(long seconds) : m_time(), m_szText(), m_seconds(seconds) {
  tm parts;
  BreakDown(seconds, parts);
  // Kept: the year since 1900 and the month from 0, as they come. Callers correct them.
  m_time.year = Part(parts.tm_year);
  m_time.month = Part(parts.tm_mon);
  m_time.day = Part(parts.tm_mday);
  m_time.dayOfWeek = Part(parts.tm_wday);
  m_time.hour = Part(parts.tm_hour);
  m_time.minute = Part(parts.tm_min);
  m_time.second = Part(parts.tm_sec);
}

CDateTime::CDateTime(const char* text) : m_time(), m_szText(), m_seconds(0) {
  if (text == nullptr) return;
  const char* format =
      strchr(text, '-') != nullptr ? "%hu-%hu-%hu %hu:%hu:%hu.%hu" : "%hu/%hu/%hu %hu:%hu:%hu.%hu";
  sscanf(text, format, &m_time.year, &m_time.month, &m_time.day, &m_time.hour, &m_time.minute,
         &m_time.second, &m_time.milliseconds);
}

CDateTime::~CDateTime() = default;

CDateTime& CDateTime::operator=(const CDateTime& other) {
  // Kept: the calendar time only. Who keeps a text from ToString, or seconds, keeps them.
  m_time = other.m_time;
  return *this;
}

CDateTime& CDateTime::Now() {
  GetLocalTime(&m_time);
  return *this;
}

unsigned short CDateTime::Year() {
  return m_time.year;
}

unsigned short CDateTime::Month() {
  return m_time.month;
}

unsigned short CDateTime::Day() {
  return m_time.day;
}

unsigned short CDateTime::DayOfWeek() {
  return m_time.dayOfWeek;
}

unsigned short CDateTime::Hour() {
  return m_time.hour;
}

unsigned short CDateTime::Minute() {
  return m_time.minute;
}

unsigned short CDateTime::Second() {
  return m_time.second;
}

unsigned short CDateTime::Milliseconds() {
  return m_time.milliseconds;
}

_SYSTEMTIME CDateTime::GetTime() {
  return m_time;
}

long CDateTime::ToTime() {
  return m_seconds;
}

long CDateTime::operator-(CDateTime& other) {
  return Difference(ToTime(), other.ToTime());
}

bool CDateTime::operator>(CDateTime& other) {
  return *this - other > 0;
}

int CDateTime::DaysTo(CDateTime& other) {
  constexpr int kDay = static_cast<int>(kSecondsPerDay);
  const auto seconds = static_cast<int32_t>(*this - other);
  // Kept: a part of a day moves the result up, below zero too. Callers count days that have begun.
  return seconds / kDay + (seconds % kDay != 0 ? 1 : 0);
}

CDateTime CDateTime::AddDays(int days) {
  // Kept: the product is cut to 32 bits, so that far days come out as they always have.
  const auto seconds = static_cast<int32_t>(static_cast<uint32_t>(days) * kSecondsPerDay);
  return {Difference(ToTime(), -static_cast<long>(seconds))};
}

int CDateTime::GetDaysInMonth(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12) return 0;
  const bool isLeap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && isLeap ? 29 : kDays[month - 1];
}

char* CDateTime::ToString(const char* format) {
  const _SYSTEMTIME& t = m_time;
  Text& text = m_szText;
  memset(text, 0, sizeof(text));
  // Kept: years are padded with zeros in dates alone, with blanks beside a time. Readers know both.
  if (format == nullptr) {
    Print(text, "%4hu-%02hu-%02hu %02hu:%02hu:%02hu.%03hu", t.year, t.month, t.day, t.hour,
          t.minute, t.second, t.milliseconds);
  } else if (Is(format, "yyyy-MM-dd")) {
    Print(text, "%04hu-%02hu-%02hu", t.year, t.month, t.day);
  } else if (Is(format, "yyyy/MM/dd")) {
    Print(text, "%04hu/%02hu/%02hu", t.year, t.month, t.day);
  } else if (Is(format, "yyyy.MM.dd")) {
    Print(text, "%04hu.%02hu.%02hu", t.year, t.month, t.day);
  } else if (Is(format, "yyyyMMdd")) {
    Print(text, "%04hu%02hu%02hu", t.year, t.month, t.day);
  } else if (Is(format, "yyyy-MM-dd hh:mm:ss")) {
    Print(text, "%4hu-%02hu-%02hu %02hu:%02hu:%02hu", t.year, t.month, t.day, t.hour, t.minute,
          t.second);
  } else if (Is(format, "hh:mm:ss")) {
    Print(text, "%02hu:%02hu:%02hu", t.hour, t.minute, t.second);
  } else if (Is(format, "hhmmss")) {
    Print(text, "%02hu%02hu%02hu", t.hour, t.minute, t.second);
  } else if (Is(format, "hh:mm:ss.mi")) {
    Print(text, "%02hu:%02hu:%02hu.%03hu", t.hour, t.minute, t.second, t.milliseconds);
  } else if (Is(format, "hh.mm")) {
    Print(text, "%02hu.%02hu", t.hour, t.minute);
  } else if (Is(format, "yyyyMMddhhmmss.mi")) {
    Print(text, "%4hu%02hu%02hu%02hu%02hu%02hu.%03hu", t.year, t.month, t.day, t.hour, t.minute,
          t.second, t.milliseconds);
  }
  return m_szText;
}

void CDateTime::GetLocalTime(_SYSTEMTIME* st) {
  if (st == nullptr) return;
  timeval now{};
  gettimeofday(&now, nullptr);
  tm parts;
  if (!BreakDown(now.tv_sec, parts)) {
    *st = _SYSTEMTIME();
    return;
  }
  st->year = Part(parts.tm_year + 1900);
  st->month = Part(parts.tm_mon + 1);
  st->dayOfWeek = Part(parts.tm_wday);
  st->day = Part(parts.tm_mday);
  st->hour = Part(parts.tm_hour);
  st->minute = Part(parts.tm_min);
  st->second = Part(parts.tm_sec);
  st->milliseconds = static_cast<uint16_t>(now.tv_usec / 1000);
}

int CDateTime::gettimeofday(timeval* tv, struct timezone* tz) {
  timeval unused;
  return ::gettimeofday(tv == nullptr ? &unused : tv, tz);
}

double CDateTime::GetMilisecondTime() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<double>(now.tv_sec * 1000 + now.tv_usec / 1000);
}

void CDateTime::SleepMilisecond(unsigned long ms) {
  if (ms == 0) return;
  timespec wait{};
  wait.tv_sec = static_cast<time_t>(ms / 1000);
  wait.tv_nsec = static_cast<long>(ms % 1000) * 1000000;
  // Not continued after a signal: hosts use one to end a wait early.
  clock_nanosleep(CLOCK_MONOTONIC, 0, &wait, nullptr);
}

}  // namespace Tarn::Generic
