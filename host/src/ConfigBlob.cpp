#include "host/ConfigBlob.h"

namespace host {

namespace {

template <typename T>
void appendLittleEndian(std::vector<unsigned char>& out, T value) {
    auto bits = static_cast<std::uint32_t>(value);
    for (unsigned i = 0; i < sizeof(T); ++i) {
        out.push_back(static_cast<unsigned char>(bits >> (8 * i)));
    }
}

void appendParams(std::vector<unsigned char>& out, const std::vector<std::int32_t>& params) {
    appendLittleEndian(out, static_cast<std::int32_t>(params.size()));
    for (std::int32_t p : params) {
        appendLittleEndian(out, p);
    }
}

}  // namespace

std::vector<unsigned char> oldFormBlob(const std::vector<std::int32_t>& params) {
    std::vector<unsigned char> out;
    appendParams(out, params);
    return out;
}

std::vector<unsigned char> versionedBlob(const std::vector<std::int32_t>& params,
                                         std::uint16_t version) {
    std::vector<unsigned char> out;
    appendLittleEndian(out, version);
    appendParams(out, params);
    return out;
}

std::vector<unsigned char> defaultBlob() {
    return oldFormBlob({0, 200});
}

}  // namespace host
