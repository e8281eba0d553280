// A HAL with every function the driver calls, refusing the network calls.
#include "wexa_hal.h"

extern "C" {
int hal_get_network_count(unsigned int*) {
    return -1;
}
int hal_get_network(unsigned int, hal_network_info*) {
    return -1;
}
int hal_get_network_byname(const char*, hal_network_info*) {
    return -1;
}
int hal_set_ip_addr(const char*, const hal_net_param*) {
    return -1;
}
int hal_set_lcd_status(int) {
    return 0;
}
int hal_set_rtc_time(const struct tm*) {
    return 0;
}
}
