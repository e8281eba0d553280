// The whole host around one device: driver library, database, communication object, device.
#pragma once

#include <memory>
#include <string>

#include "Communication.h"
#include "ConfigBlob.h"
#include "Database.h"
#include "Device.h"
#include "DriverLibrary.h"

namespace host {

class Runtime {
public:
    // Loads the driver and creates the device `deviceName`; nothing is initialised yet.
    explicit Runtime(const std::string& driverPath, const std::string& deviceName = "KRVcontrol");
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    // True when the driver loaded and created the device; otherwise see error().
    bool ok() const { return device_ && device_->valid(); }
    std::string error() const;

    // Hands the device the communication object, then initialises it with `blob`. Returns the
    // InitDevice result.
    int start(const std::vector<unsigned char>& blob = defaultBlob());

    DriverLibrary& library() { return library_; }
    Database& database() { return database_; }
    Communication& communication() { return communication_; }
    // Valid only when ok().
    Device& device() { return *device_; }

private:
    // Declaration order is destruction order reversed: the device goes before the library.
    DriverLibrary library_;
    Database database_;
    Communication communication_;
    std::unique_ptr<Device> device_;
};

}  // namespace host
