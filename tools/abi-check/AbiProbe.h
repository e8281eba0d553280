// The driver's binary interface checked from the runtime's side (RuntimeSide.h): loading it as
// the runtime does, then calling its entry points and slots and reading its per-device record.
// Shared by krv-abi-check and krv-panel-check.
#pragma once

#include <string>
#include <vector>

namespace abi_probe {

// Loads each of `preloads` globally, as the runtime holds its libraries, then the driver. Null,
// with `error` saying which file and why, when one of them does not load.
void* loadDriver(const std::vector<std::string>& preloads, const char* driver, std::string& error);

// Each check's outcome, in order; `what` names the check.
typedef void (*Sink)(bool ok, const std::string& what, void* context);

// Runs every check on a driver loaded by loadDriver and returns how many failed. Creates devices
// but never initialises one, so the driver touches no file and runs no command.
int probe(void* driver, Sink sink, void* context);

}  // namespace abi_probe
