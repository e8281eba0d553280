// The panel's channels as the simulator shows them: one row per driver channel index. Driver
// index i is runtime channel i-1; index 0 is the communication-state entry, which reaches the
// runtime only as the result of a poll.
#pragma once

#include <cstddef>
#include <vector>

#include "DataType.h"

namespace krv_sim {

struct ChannelInfo {
    const char* name;  // in plain words
    DATATYPE type;     // the runtime channel's type; NONE for index 0
};

inline constexpr ChannelInfo kChannelTable[] = {
    {"Communication state", DATATYPE_NONE},
    {"IP address 1", DATATYPE_STRING},
    {"Subnet mask 1", DATATYPE_STRING},
    {"Buzzer on/off", DATATYPE_INT},
    {"Buzzer duration (ms)", DATATYPE_DOUBLE},
    {"Backlight on/off", DATATYPE_INT},
    {"Backlight time-out (s)", DATATYPE_DOUBLE},
    {"Beep (write only)", DATATYPE_DOUBLE},
    {"IP address 2", DATATYPE_STRING},
    {"Subnet mask 2", DATATYPE_STRING},
    {"CPU load", DATATYPE_DOUBLE},
    {"Free memory (MiB)", DATATYPE_INT},
    {"NTP enabled", DATATYPE_INT},
    {"NTP mode", DATATYPE_INT},
    {"NTP period (h)", DATATYPE_INT},
    {"NTP server 1", DATATYPE_STRING},
    {"NTP server 2", DATATYPE_STRING},
    {"NTP server 3", DATATYPE_STRING},
    {"NTP server 4", DATATYPE_STRING},
    {"Remote-view password", DATATYPE_STRING},
};

inline constexpr int kChannelCount = static_cast<int>(std::size(kChannelTable));

// Types of runtime channels 0..kChannelCount-2, as a project defines them: the driver's own
// write types, so the simulator sends what a typical project would.
inline std::vector<DATATYPE> runtimeChannelTypes() {
    std::vector<DATATYPE> types;
    for (int i = 1; i < kChannelCount; ++i) {
        types.push_back(kChannelTable[i].type);
    }
    return types;
}

}  // namespace krv_sim
