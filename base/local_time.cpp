#include "base/local_time.h"

#include <signal.h>

#include <atomic>

#include "base/process.h"

namespace {

constexpr time_t kQuarterSeconds = 900;
constexpr int64_t kDaySeconds = 86400;

std::atomic<time_t> s_quarter{-1};  // the quarter of an hour in which s_offset was asked
std::atomic<long> s_offset{0};
volatile sig_atomic_t s_handler_depth = 0;  // handlers that run on the first thread

void refresh_offset(time_t now) {
  tm local;
  if (!may_convert_time() || localtime_r(&now, &local) == nullptr) return;
  s_offset.store(local.tm_gmtoff, std::memory_order_relaxed);
  s_quarter.store(now / kQuarterSeconds, std::memory_order_relaxed);
}

}  // namespace

bool may_convert_time() {
  return on_first_thread() && s_handler_depth == 0;
}

ScopedSignalHandler::ScopedSignalHandler() {
  if (on_first_thread()) s_handler_depth = s_handler_depth + 1;
}

ScopedSignalHandler::~ScopedSignalHandler() {
  if (on_first_thread()) s_handler_depth = s_handler_depth - 1;
}

long utc_offset(time_t now) {
  if (s_quarter.load(std::memory_order_relaxed) != now / kQuarterSeconds) refresh_offset(now);
  return s_offset.load(std::memory_order_relaxed);
}

CivilTime current_local_time() {
  const time_t now = time(nullptr);
  refresh_offset(now);
  return to_civil(now, s_offset.load(std::memory_order_relaxed));
}

CivilTime to_civil(time_t now, long offset) {
  const int64_t seconds = static_cast<int64_t>(now) + offset;
  int64_t days = seconds / kDaySeconds;
  int64_t rest = seconds % kDaySeconds;
  if (rest < 0) {
    rest += kDaySeconds;
    days--;
  }
  // Days since 0000-03-01, in eras of 400 years, so that the leap day is the last of its year.
  const int64_t shifted = days + 719468;
  const int64_t era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
  const int64_t day_of_era = shifted - era * 146097;
  const int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const int64_t month_from_march = (5 * day_of_year + 2) / 153;

  CivilTime out;
  out.day = static_cast<int>(day_of_year - (153 * month_from_march + 2) / 5 + 1);
  out.month = static_cast<int>(month_from_march < 10 ? month_from_march + 3 : month_from_march - 9);
  out.year = static_cast<int>(year_of_era + era * 400 + (out.month <= 2 ? 1 : 0));
  out.hour = static_cast<int>(rest / 3600);
  out.minute = static_cast<int>(rest / 60 % 60);
  out.second = static_cast<int>(rest % 60);
  return out;
}
