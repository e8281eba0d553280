// The per-device record as the runtime's header lays it out, for comparison with the caller's
// own copy in abi_caller.cpp.
#include <cstddef>

#include "WexaData.h"

extern "C" const std::size_t* krv_header_record_layout() {
    static const std::size_t layout[] = {
        offsetof(WEXA_DATA, strDevName),
        offsetof(WEXA_DATA, strReserved),
        offsetof(WEXA_DATA, nReserved0),
        offsetof(WEXA_DATA, pArchive),
        offsetof(WEXA_DATA, pDevBas),
        offsetof(WEXA_DATA, nCommState),
        offsetof(WEXA_DATA, pCommunication),
        offsetof(WEXA_DATA, pRtdbByName),
        offsetof(WEXA_DATA, nReserved1),
        offsetof(WEXA_DATA, SetParamValue_Fun),
        offsetof(WEXA_DATA, GetParamValue_Fun),
        offsetof(WEXA_DATA, GetParamType_Fun),
        offsetof(WEXA_DATA, pRtdb),
        sizeof(WEXA_DATA),
    };
    return layout;
}
