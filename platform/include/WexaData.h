// The runtime's per-device context record, passed by reference to every service.
#pragma once

#include "CString.h"
#include "DataType.h"
#include "ICommunication.h"
#include "IRtdb.h"

class COwnerArchive;
class CDevBas;
struct WEXA_DATA;

typedef int (*SetParamValueFn)(WEXA_DATA& data, CString name, DATATYPE type, void* value);
typedef int (*GetParamValueFn)(WEXA_DATA& data, CString name, DATATYPE type, void* out);
typedef int (*GetParamTypeFn)(WEXA_DATA& data, CString name, DATATYPE& type);

// Field order is ABI.
struct WEXA_DATA {
    CString strDevName;                 // 1 device name
    CString strReserved;                // 2 unused by drivers
    int nReserved0;                     // 3
    COwnerArchive* pArchive;            // 4 only while InitDevice runs
    CDevBas* pDevBas;                   // 5 device logic object, owned
    int nCommState;                     // 6 0, then 1 or 2
    ICommunication* pCommunication;     // 7 not owned
    IRtdb* pRtdbByName;                 // 8 used by the parameter functions
    int nReserved1;                     // 9
    SetParamValueFn SetParamValue_Fun;  // 10
    GetParamValueFn GetParamValue_Fun;  // 11
    GetParamTypeFn GetParamType_Fun;    // 12
    IRtdb* pRtdb;                       // 13 used for channel pushes
};
