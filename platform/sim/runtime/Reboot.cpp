// The simulated panel's restart: journaled, never carried out.
#include <dlfcn.h>

#include "SimInternal.h"

// Symbol interposition: this library defines the C library's `reboot`. Every program of ours
// that hosts the driver links libwexa-runtime, and the dynamic linker searches a program's
// libraries in link order with libc last, so the driver's call to `reboot` binds here and the
// restart is only journaled. A real panel has no such library and the driver gets libc's
// `reboot`. sim::rebootIsInterposed checks that the binding came out this way.
extern "C" __attribute__((visibility("default"))) int reboot(int how) {
    sim::detail::record("reboot", sim::detail::format("reboot(%#x)", static_cast<unsigned>(how)));
    return 0;
}

// The same function under a name nobody else defines: its address is this library's own.
extern "C" __attribute__((visibility("hidden"), alias("reboot"))) int simJournalReboot(int how);

namespace sim {

bool rebootIsInterposed() {
    void* bound = dlsym(RTLD_DEFAULT, "reboot");
    return bound && bound == reinterpret_cast<void*>(&simJournalReboot);
}

}  // namespace sim
