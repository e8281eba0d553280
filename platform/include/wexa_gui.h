// Calls into the panel GUI that make it take up changed settings. Results are advisory.
#pragma once

extern "C" {
int __gui_get_buzzing_time(int flag);
int __gui_get_lcdlight_status(int flag);
int __gui_get_lcdlight_time(int flag);
int __gui_reset_lcdlight_timer(void);
}
