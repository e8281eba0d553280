// The panel the fuzz targets run against: the built driver loaded through the runtime host,
// started once per process with a few project variables for commands to name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/Runtime.h"

namespace krv_fuzz {

// The started runtime. The first call checks that the process runs in the panel sandbox and
// that reboot() is the simulated runtime's recording one, and aborts otherwise.
host::Runtime& panel();

// Puts back the project variables commands may name: ints "St" and "I", double "D", texts
// "Txt" and "T" (so that one input's writes do not pile up into the next).
void resetVariables(host::Database& database);

// Replaces the contents of `path` (a regular file, or one bound over a /proc entry).
void overwrite(const std::string& path, const std::string& contents);

inline std::string text(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

}  // namespace krv_fuzz
