// The per-device record as the runtime's header lays it out must match krv-abi-check's own copy:
// checked while building, so a drift in either stops the build.
#include <cstddef>

#include "RuntimeSide.h"
#include "WexaData.h"

using runtime_side::Record;

#define KRV_SAME_OFFSET(mine, header) \
    static_assert(offsetof(Record, mine) == offsetof(WEXA_DATA, header), #header " moved")
KRV_SAME_OFFSET(name, strDevName);
KRV_SAME_OFFSET(second, strReserved);
KRV_SAME_OFFSET(word0, nReserved0);
KRV_SAME_OFFSET(archive, pArchive);
KRV_SAME_OFFSET(logic, pDevBas);
KRV_SAME_OFFSET(commState, nCommState);
KRV_SAME_OFFSET(comm, pCommunication);
KRV_SAME_OFFSET(rtdbByName, pRtdbByName);
KRV_SAME_OFFSET(word1, nReserved1);
KRV_SAME_OFFSET(setParam, SetParamValue_Fun);
KRV_SAME_OFFSET(getParam, GetParamValue_Fun);
KRV_SAME_OFFSET(getType, GetParamType_Fun);
KRV_SAME_OFFSET(rtdb, pRtdb);
static_assert(sizeof(Record) == sizeof(WEXA_DATA), "record size differs");
