#include "host/Device.h"

namespace host {

Device::Device(const DriverLibrary& library, const std::string& name, IRtdb* database)
    : name_(name), destroyFunction_(library.destroyFunction()) {
    if (library.loaded()) {
        device_ = library.createFunction()(name_.c_str(), database);
    }
}

Device::~Device() {
    destroy();
}

int Device::init(const std::vector<unsigned char>& blob) {
    return init(blob.data(), static_cast<int>(blob.size()));
}

int Device::init(const unsigned char* blob, int length) {
    return valid() ? device_->InitDevice(blob, length) : DEVCTRL_BAD_ARGUMENT;
}

int Device::cleanup() {
    return valid() ? device_->CleanupDevice() : DEVCTRL_BAD_ARGUMENT;
}

int Device::collect(const std::vector<int>& flags) {
    return collect(flags.data(), static_cast<int>(flags.size()));
}

int Device::collect(const int* flags, int count) {
    return valid() ? device_->CollectDevData(flags, count) : DEVCTRL_BAD_ARGUMENT;
}

int Device::command(const std::string& text) {
    return command(text.c_str());
}

int Device::command(const char* text) {
    return valid() ? device_->DevIOCtrl(text) : DEVCTRL_BAD_ARGUMENT;
}

int Device::write(int channel, DATATYPE type, void* value) {
    return valid() ? device_->WriteChannel(channel, type, value) : DEVCTRL_BAD_ARGUMENT;
}

int Device::writeInt(int channel, int value) {
    return write(channel, DATATYPE_INT, &value);
}

int Device::writeDouble(int channel, double value) {
    return write(channel, DATATYPE_DOUBLE, &value);
}

int Device::writeText(int channel, const std::string& value) {
    // The slot takes a writable pointer; hand it a copy rather than the string's own buffer.
    std::vector<char> text(value.begin(), value.end());
    text.push_back('\0');
    return write(channel, DATATYPE_STRING, text.data());
}

int Device::updateCommunication(ICommunication* communication) {
    return valid() ? device_->UpdataCommunication(communication) : DEVCTRL_BAD_ARGUMENT;
}

int Device::channelRefChange(const std::vector<int>& flags) {
    return channelRefChange(flags.data(), static_cast<int>(flags.size()));
}

int Device::channelRefChange(const int* flags, int count) {
    return valid() ? device_->ChannelRefChange(flags, count) : DEVCTRL_BAD_ARGUMENT;
}

int Device::setChannelAddress(int a, int b) {
    return valid() ? device_->SetChannelAddress(a, b) : DEVCTRL_BAD_ARGUMENT;
}

int Device::destroy() {
    if (!valid()) {
        return DEVCTRL_BAD_ARGUMENT;
    }
    device_->CleanupDevice();
    int result = destroyFunction_(device_);
    device_ = nullptr;
    return result;
}

}  // namespace host
