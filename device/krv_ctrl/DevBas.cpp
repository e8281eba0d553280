#include "DevBas.h"

#include "OwnerArchive.h"
#include "devliunxsys.h"
#include "ntp/NtpCtrl.h"

IRtdb* CDevBas::m_pRtdb = nullptr;

CDevBas::CDevBas() = default;

// The NTP worker goes first: it must be joined before anything it might reach
// disappears.
CDevBas::~CDevBas() {
    delete m_pNtpCtrl;
    m_pNtpCtrl = nullptr;
    delete m_pDevManger;
    m_pDevManger = nullptr;
}

int CDevBas::mfDeserializeFromOld(WEXA_DATA& data) {
    if (data.pArchive == nullptr)
        return 0;
    COwnerArchive& archive = *data.pArchive;
    int count = archive.SvrReadInt32();
    // The array takes the count the blob gives and a value that cannot be read stays 0, so a
    // short blob still yields every parameter. A negative count stands for an empty array. The
    // editor writes a handful of parameters: a count above kMaxParamCount can only be corrupt or
    // hostile and is cut there, so that it cannot allocate gigabytes.
    if (count < 0)
        count = 0;
    else if (count > kMaxParamCount)
        count = kMaxParamCount;
    m_params.SetSize(count);
    for (int i = 0; i < count; ++i)
        m_params[i] = archive.SvrReadInt32();
    return 0;
}
