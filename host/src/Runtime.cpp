#include "host/Runtime.h"

namespace host {

Runtime::Runtime(const std::string& driverPath, const std::string& deviceName)
    : library_(driverPath) {
    if (library_.loaded()) {
        device_ = std::make_unique<Device>(library_, deviceName, &database_);
    }
}

std::string Runtime::error() const {
    if (!library_.loaded()) {
        return library_.error();
    }
    return ok() ? std::string() : "CreateDeviceCtrl returned no device";
}

int Runtime::start(const std::vector<unsigned char>& blob) {
    if (!ok()) {
        return DEVCTRL_BAD_ARGUMENT;
    }
    device_->updateCommunication(&communication_);
    return device_->init(blob);
}

}  // namespace host
