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
int hal_set_rtc_time(const struct tm* time) {
    if (!time)
        return -1;
    sim::detail::record("rtc",
                        sim::detail::format("hal_set_rtc_time(%d-%02d-%02d %02d:%02d:%02d)",
                                            time->tm_year + 1900, time->tm_mon + 1, time->tm_mday,
                                            time->tm_hour, time->tm_min, time->tm_sec));
    return sim::detail::halResult(HalCall::Rtc);
}
}
