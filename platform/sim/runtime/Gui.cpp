// The panel GUI's notification calls: journaled, always accepted.
#include "SimInternal.h"
#include "wexa_gui.h"

namespace {

int notifyGui(const char* call, int flag) {
    sim::detail::record("gui", sim::detail::format("%s(%d)", call, flag));
    return 0;
}

}  // namespace

extern "C" {

int __gui_get_buzzing_time(int flag) {
    return notifyGui("__gui_get_buzzing_time", flag);
}
int __gui_get_lcdlight_status(int flag) {
    return notifyGui("__gui_get_lcdlight_status", flag);
}
int __gui_get_lcdlight_time(int flag) {
    return notifyGui("__gui_get_lcdlight_time", flag);
}

int __gui_reset_lcdlight_timer(void) {
    sim::detail::record("gui", "__gui_reset_lcdlight_timer()");
    return 0;
}
}
