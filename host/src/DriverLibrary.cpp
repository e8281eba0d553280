#include "host/DriverLibrary.h"

#include <dlfcn.h>

#include <utility>

namespace host {

namespace {

std::string lastDlError(const char* fallback) {
    const char* text = dlerror();
    return text != nullptr ? text : fallback;
}

}  // namespace

DriverLibrary::DriverLibrary(const std::string& path) : path_(path) {
    // RTLD_NOW: an unresolved symbol must show here, not at the first call into the driver.
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        error_ = lastDlError("dlopen failed");
        return;
    }
    create_ = reinterpret_cast<CreateDeviceCtrlFn>(symbol("CreateDeviceCtrl"));
    destroy_ = reinterpret_cast<DestroyDeviceCtrlFn>(symbol("DestroyDeviceCtrl"));
    if (!loaded()) {
        error_ = path + ": CreateDeviceCtrl or DestroyDeviceCtrl not exported";
        close();
    }
}

DriverLibrary::~DriverLibrary() {
    close();
}

DriverLibrary::DriverLibrary(DriverLibrary&& other) noexcept
    : path_(std::move(other.path_)),
      error_(std::move(other.error_)),
      handle_(std::exchange(other.handle_, nullptr)),
      create_(std::exchange(other.create_, nullptr)),
      destroy_(std::exchange(other.destroy_, nullptr)) {}

DriverLibrary& DriverLibrary::operator=(DriverLibrary&& other) noexcept {
    if (this != &other) {
        close();
        path_ = std::move(other.path_);
        error_ = std::move(other.error_);
        handle_ = std::exchange(other.handle_, nullptr);
        create_ = std::exchange(other.create_, nullptr);
        destroy_ = std::exchange(other.destroy_, nullptr);
    }
    return *this;
}

void* DriverLibrary::symbol(const char* name) const {
    return handle_ != nullptr ? dlsym(handle_, name) : nullptr;
}

void DriverLibrary::close() {
    if (handle_ != nullptr) {
        dlclose(handle_);
    }
    handle_ = nullptr;
    create_ = nullptr;
    destroy_ = nullptr;
}

}  // namespace host
