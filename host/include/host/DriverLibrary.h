// A driver shared object opened with dlopen, with its two entry points resolved.
#pragma once

#include <string>

#include "IDeviceCtrl.h"

namespace host {

class DriverLibrary {
public:
    // Opens `path` with every symbol bound at once; check loaded() and error().
    explicit DriverLibrary(const std::string& path);
    ~DriverLibrary();
    DriverLibrary(DriverLibrary&& other) noexcept;
    DriverLibrary& operator=(DriverLibrary&& other) noexcept;
    DriverLibrary(const DriverLibrary&) = delete;
    DriverLibrary& operator=(const DriverLibrary&) = delete;

    // True when the object is open and both entry points were found.
    bool loaded() const { return create_ != nullptr && destroy_ != nullptr; }
    const std::string& error() const { return error_; }
    const std::string& path() const { return path_; }

    CreateDeviceCtrlFn createFunction() const { return create_; }
    DestroyDeviceCtrlFn destroyFunction() const { return destroy_; }
    // Any other symbol, or null.
    void* symbol(const char* name) const;

private:
    void close();

    std::string path_;
    std::string error_;
    void* handle_ = nullptr;
    CreateDeviceCtrlFn create_ = nullptr;
    DestroyDeviceCtrlFn destroy_ = nullptr;
};

}  // namespace host
