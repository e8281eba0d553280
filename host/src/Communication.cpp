#include "host/Communication.h"

namespace host {

void Communication::setState(int state) {
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = state;
}

std::vector<std::string> Communication::serviceCalls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return serviceCalls_;
}

int Communication::stateQueries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stateQueries_;
}

void Communication::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    serviceCalls_.clear();
    stateQueries_ = 0;
}

int Communication::OnDeviceService(char* deviceName) {
    std::lock_guard<std::mutex> lock(mutex_);
    serviceCalls_.emplace_back(deviceName != nullptr ? deviceName : "");
    return 0;
}

int Communication::GetCommState() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++stateQueries_;
    return state_;
}

}  // namespace host
