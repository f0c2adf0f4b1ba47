/// @file
/// Calendar time, the millisecond clock and the millisecond sleep.
/// Public: may include only public headers.
#ifndef TARN_GENERIC_DATETIME_H
#define TARN_GENERIC_DATETIME_H

#include <sys/time.h>

#include <Tarn/Generic/Api.h>

namespace Tarn {

/// A broken-down calendar time.
struct _SYSTEMTIME {
  unsigned short year;          ///< the full year
  unsigned short month;         ///< 1 ... 12
  unsigned short dayOfWeek;     ///< 0 is Sunday ... 6 is Saturday
  unsigned short day;           ///< day of the month, 1 ... 31
  unsigned short hour;          ///< 0 ... 23
  unsigned short minute;        ///< 0 ... 59
  unsigned short second;        ///< 0 ... 60
  unsigned short milliseconds;  ///< 0 ... 999
};

namespace Generic {

/// One calendar time in local time, and beside it a number of seconds since the epoch.
///
/// The two are independent: only CDateTime(long) and AddDays set the seconds, and all arithmetic
/// works on them alone; everything else works on the calendar time. Threads: an object must not be
/// used by two threads at once; the static functions are safe from any thread. Nothing throws.
class TARN_API CDateTime {
 public:
  /// The current local time; the seconds are 0.
  CDateTime();
  /// Beware: the calendar time is then as the platform breaks it down, the year counted from 1900
  /// and the month from 0. It is all zero when the platform cannot express `seconds`.
  CDateTime(long seconds);
  /// Reads "2024-03-05 07:08:09.123" or "2024/03/05 07:08:09.123". Parts missing at the end are 0,
  /// so are the weekday and the seconds.
  CDateTime(const char* text);
  CDateTime(const CDateTime&) = default;
  ~CDateTime();
  /// Takes the other's calendar time only, neither its seconds nor its text.
  CDateTime& operator=(const CDateTime& other);

  /// Sets the calendar time to the current local time; the seconds stay.
  CDateTime& Now();
  unsigned short Year();
  unsigned short Month();
  unsigned short Day();
  unsigned short DayOfWeek();
  unsigned short Hour();
  unsigned short Minute();
  unsigned short Second();
  unsigned short Milliseconds();
  /// The calendar time.
  Tarn::_SYSTEMTIME GetTime();
  /// The seconds since the epoch; 0 unless set by CDateTime(long) or AddDays.
  long ToTime();

  /// The difference of the two ToTime, in seconds.
  long operator-(CDateTime& other);
  /// Whether ToTime is later than the other's.
  bool operator>(CDateTime& other);
  /// The days of (*this - other): cut to 32 bits, divided by 86400 towards zero, and one more
  /// unless it divides evenly. So 86401 seconds give 2, but -1 second gives 1 and -86401 seconds
  /// give 0.
  int DaysTo(CDateTime& other);
  /// CDateTime(ToTime() + days * 86400), with a product of 32 bits: beyond 24855 days it wraps.
  CDateTime AddDays(int days);
  /// The length of a month of the Gregorian calendar, `month` in 1 ... 12; 0 for any other.
  int GetDaysInMonth(int year, int month);

  /// The calendar time as text in one of these forms, compared as whole texts: null for
  /// "yyyy-MM-dd hh:mm:ss.mi", "yyyy-MM-dd", "yyyy/MM/dd", "yyyy.MM.dd", "yyyyMMdd",
  /// "yyyy-MM-dd hh:mm:ss", "hh:mm:ss", "hhmmss", "hh:mm:ss.mi", "hh.mm", "yyyyMMddhhmmss.mi".
  /// Years below 1000 are padded with zeros in the forms of the date alone and with blanks beside a
  /// time.
  /// @return the object's own buffer, valid until the next ToString; empty for any other format
  char* ToString(const char* format);

  /// Fills in the current local time, all zero when the platform cannot tell it; null is ignored.
  static void GetLocalTime(Tarn::_SYSTEMTIME* st);
  /// The platform's `gettimeofday`.
  static int gettimeofday(struct timeval* tv, struct timezone* tz);
  /// The wall clock in whole milliseconds since the epoch.
  static double GetMilisecondTime();
  /// Waits; 0 returns at once, and a signal handled by this thread ends the wait early.
  static void SleepMilisecond(unsigned long ms);

 private:
  Tarn::_SYSTEMTIME m_time;
  char m_szText[50];    // the result of the last ToString
  long long m_seconds;  // since the epoch; see the class comment
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_DATETIME_H
