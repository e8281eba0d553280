#include "DevBas.h"

#include <algorithm>

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
    const int count = archive.SvrReadInt32();
    // A negative count cannot size anything: it stands for an empty array. A count beyond the
    // bytes left in the archive cannot be the editor's: it is cut there, so that a corrupt blob
    // costs no more than a few times its own size instead of gigabytes. Values past the end of
    // a short blob still read as 0.
    const int room = std::max(archive.GetSize() - archive.GetPosition(), 0);
    m_params.SetSize(std::min(std::max(count, 0), room));
    for (int i = 0; i < m_params.GetSize(); ++i)
        m_params[i] = archive.SvrReadInt32();
    return 0;
}
