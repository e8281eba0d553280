// What the simulated HAL is told to answer; kept here so that sim::reset covers it.
#include <atomic>

#include "SimInternal.h"

namespace sim {
namespace {

std::atomic<int> lcdResult{0};
std::atomic<int> rtcResult{0};
std::atomic<int> networkResult{0};
std::atomic<int> ipAddrResult{0};

}  // namespace

void setLcdResult(int result) {
    lcdResult = result;
}
void setRtcResult(int result) {
    rtcResult = result;
}
void setNetworkResult(int result) {
    networkResult = result;
}
void setIpAddrResult(int result) {
    ipAddrResult = result;
}

namespace detail {

int halResult(HalCall call) {
    switch (call) {
        case HalCall::Lcd:
            return lcdResult;
        case HalCall::Rtc:
            return rtcResult;
        case HalCall::Network:
            return networkResult;
        case HalCall::IpAddr:
            return ipAddrResult;
    }
    return -1;
}

}  // namespace detail
}  // namespace sim
