// The panel's hardware abstraction library (libwexa-hal.so).
#pragma once

#include <stdint.h>
#include <time.h>

extern "C" {

// The parameter block hal_set_ip_addr takes (28 bytes); words other than the
// address and the mask belong to the HAL and are passed back unchanged.
struct hal_net_param {
    uint32_t word0;
    uint32_t addr;  // IPv4 address, network byte order
    uint32_t word2;
    uint32_t mask;  // IPv4 subnet mask, network byte order
    uint32_t word4[3];
};

// One network interface (60 bytes).
struct hal_network_info {
    char name[32];  // zero-terminated
    hal_net_param param;
};

int hal_get_network_count(unsigned int* count);
int hal_get_network(unsigned int index, hal_network_info* info);
int hal_get_network_byname(const char* name, hal_network_info* info);
int hal_set_ip_addr(const char* name, const hal_net_param* param);

// 0 switches the backlight on, 1 off.
int hal_set_lcd_status(int status);

// Sets the battery-backed clock from broken-down local time.
int hal_set_rtc_time(const struct tm* time);
}

static_assert(sizeof(hal_net_param) == 28, "HAL parameter block is 28 bytes");
static_assert(sizeof(hal_network_info) == 60, "HAL interface record is 60 bytes");
