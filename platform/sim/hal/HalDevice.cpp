// The simulated HAL's backlight and real-time clock: journaled, result as configured.
#include "SimInternal.h"
#include "wexa_hal.h"

using sim::detail::HalCall;

extern "C" {

int hal_set_lcd_status(int status) {
    sim::detail::record("lcd", sim::detail::format("hal_set_lcd_status(%d)", status));
    return sim::detail::halResult(HalCall::Lcd);
}

// The fields are journaled as given, without normalisation: callers may pass an hour past 23.
// A refusal is journaled with its result, in the same entry, so that a reader of the journal
// can tell the synchronisation that set the clock from the attempts that failed at it.
int hal_set_rtc_time(const struct tm* time) {
    if (!time)
        return -1;
    const int result = sim::detail::halResult(HalCall::Rtc);
    const std::string refused = result == 0 ? "" : sim::detail::format(" = %d", result);
    sim::detail::record(
        "rtc", sim::detail::format("hal_set_rtc_time(%d-%02d-%02d %02d:%02d:%02d)%s",
                                   time->tm_year + 1900, time->tm_mon + 1, time->tm_mday,
                                   time->tm_hour, time->tm_min, time->tm_sec, refused.c_str()));
    return result;
}
}
