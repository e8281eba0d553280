// Device configuration blobs as the project editor writes them (little-endian).
#pragma once

#include <cstdint>
#include <vector>

namespace host {

// The version word the driver still reads; above it a blob is ignored.
constexpr std::uint16_t CONFIG_BLOB_VERSION = 20000;

// Old form: parameter count, then the parameters, each a 32-bit word.
std::vector<unsigned char> oldFormBlob(const std::vector<std::int32_t>& params);
// Versioned form: 16-bit version word, then as the old form.
std::vector<unsigned char> versionedBlob(const std::vector<std::int32_t>& params,
                                         std::uint16_t version = CONFIG_BLOB_VERSION);
// The editor's defaults for a new device: device address 0, wait time 200.
std::vector<unsigned char> defaultBlob();

}  // namespace host
