#include "DevCtrl.h"

#include <climits>
#include <iterator>
#include <cmath>
#include <memory>
#include <new>
#include <string>

#include <QString>

#include "DevBas.h"
#include "DevConst.h"
#include "DevServer.h"
#include "Logger.h"
#include "OwnerArchive.h"
#include "WexaRuntime.h"
#include "devliunxsys.h"
#include "ntp/NtpCtrl.h"

namespace {

// NTP settings file, under the runtime root's configuration directory.
const QString ntp_cfg_name = QString::fromLatin1("/ntp_param_cfg.ini");

// Defaults of the two device parameters (device address, communication wait time).
constexpr int kDefaultParams[] = {0, 200};

// Before a refresh index 0 reports 1; after it every other index is pushed (3).
constexpr int kStatusComm = 1;
constexpr int kStatusPush = 3;

constexpr int kNoDatabase = -3;

// The channel count that every small request is raised to.
constexpr int kMinMaxChannel = 9;

void logError(const char* function, int line, const char* what) {
    logger_printf(3, function, "device/krv_ctrl/DevBas", line, 0, LOGGER_LEVEL_ERROR,
                  DEV_STR_HELPFILENAME.GetString(), "%s", what);
}

// No exception may reach the runtime: a slot that fails this way (allocation
// failure, or a fault in a service it calls) reports a refusal instead.
template <class Body>
int guarded(const char* function, Body&& body) {
    try {
        return body();
    } catch (const std::exception& e) {
        logError(function, __LINE__, e.what());
    } catch (...) {
        logError(function, __LINE__, "unknown exception");
    }
    return DEVCTRL_BAD_ARGUMENT;
}

// Keeps the archive in the record for the length of one InitDevice call.
class ArchiveHold {
public:
    ArchiveHold(WEXA_DATA& data, COwnerArchive* archive) : m_data(data), m_archive(archive) {
        m_data.pArchive = archive;
    }
    ~ArchiveHold() { m_data.pArchive = nullptr; }
    ArchiveHold(const ArchiveHold&) = delete;
    ArchiveHold& operator=(const ArchiveHold&) = delete;
    COwnerArchive& archive() { return *m_archive; }

private:
    WEXA_DATA& m_data;
    std::unique_ptr<COwnerArchive> m_archive;
};

template <class Handler>
void registerOpear(DevManger& manager, DEVSYSOPEAR key) {
    std::unique_ptr<DevLiunxBase> handler(new Handler);
    manager.RegisterOpear(key, handler.get());
    handler.release();  // the manager owns it now
}

DevManger* createManager() {
    std::unique_ptr<DevManger> manager(new DevManger);
    registerOpear<DevLiunxCpuUse>(*manager, SYS_OPEAR_CPUUSE);
    registerOpear<DevLiunxMemUse>(*manager, SYS_OPEAR_MEMUSE);
    registerOpear<DevLiunxAppLog>(*manager, SYS_OPEAR_APPLOG);
    registerOpear<DevLinuxAppExecpLog>(*manager, SYS_OPEAR_APPEXECPLOG);
    registerOpear<DevLiunxAppDealLog>(*manager, SYS_OPEAR_APPDEALLOG);
    registerOpear<DevLinuxSysExecpLog>(*manager, SYS_OPEAR_SYSEXECPLOG);
    return manager.release();
}

QString ntpConfigPath() {
    // The doubled slash ("/config/" + "/ntp...") is harmless and kept.
    return QString::fromUtf8(Wexa_GetDirectory(2).GetString()) + QString::fromLatin1("/config/") +
           ntp_cfg_name;
}

// State the refresh keeps between polls, cleared for a new configuration.
void resetRefreshState(CDevBas& bas) {
    bas.m_stateFlag = 1;
    for (int& word : bas.m_stateWords)
        word = 0;
    bas.m_text.Empty();
    bas.m_stateValue = -1.0;
    for (int& word : bas.m_stateWords2)
        word = 0;
    for (long long& time : bas.m_stateTimes)
        time = 0;
}

}  // namespace

CDevCtrl::CDevCtrl(const char* name, IRtdb* rtdb) : m_data(), m_nMaxChannel(-1) {
    m_data.strDevName = name ? name : "";
    m_data.strReserved = "";
    m_data.nReserved0 = 0;
    m_data.pArchive = nullptr;
    m_data.pDevBas = nullptr;
    m_data.nCommState = 0;
    m_data.pCommunication = nullptr;
    m_data.pRtdbByName = rtdb;
    m_data.nReserved1 = 0;
    m_data.SetParamValue_Fun = &CDevCtrl::SetParamValue_Fun;
    m_data.GetParamValue_Fun = &CDevCtrl::GetParamValue_Fun;
    m_data.GetParamType_Fun = &CDevCtrl::GetParamType_Fun;
    m_data.pRtdb = rtdb;
}

// The logic object and the archive are CleanupDevice's to release.
CDevCtrl::~CDevCtrl() = default;

int CDevCtrl::InitDevice(const unsigned char* cfg, int len) {
    return guarded(__func__, [&] { return doInitDevice(cfg, len); });
}

int CDevCtrl::doInitDevice(const unsigned char* cfg, int len) {
    if (len == 0 || cfg == nullptr)
        return DEVCTRL_BAD_ARGUMENT;

    // An archive that cannot be allocated leaves everything as it was.
    COwnerArchive* created = new (std::nothrow) COwnerArchive;
    if (created == nullptr)
        return DEVCTRL_OK;
    ArchiveHold hold(m_data, created);
    COwnerArchive& archive = hold.archive();
    try {
        // Still at position 0 in store mode: the blob goes in without a version word.
        archive.SvrWrite(cfg, len);
    } catch (const std::bad_alloc&) {
        return DEVCTRL_OK;
    }
    archive.SetPosition(0);
    archive.SvrChangeMode(COwnerArchive::ARCHIVE_LOAD);

    CDevBas::m_pRtdb = m_data.pRtdb;
    if (m_data.pDevBas != nullptr)
        return DEVCTRL_OK;

    std::unique_ptr<CDevBas> bas(new CDevBas);
    bas->m_pDevManger = createManager();
    bas->m_pNtpCtrl = new NtpCtrl(ntpConfigPath());
    bas->m_pLocalRtdb = CDevBas::m_pRtdb;
    bas->m_params.SetSize(static_cast<int>(sizeof kDefaultParams / sizeof kDefaultParams[0]));
    for (int i = 0; i < bas->m_params.GetSize(); ++i)
        bas->m_params[i] = kDefaultParams[i];
    bas->m_refreshDone = 0;
    bas->m_initRefreshDone = 0;

    if (archive.GetSize() > 0) {
        archive.SvrChangeMode(COwnerArchive::ARCHIVE_LOAD);
        // Versions above the first one are not read: the defaults stay.
        if (archive.SvrPeekWord() <= COwnerArchive::VERSION_FIRST)
            bas->mfDeserializeFromOld(m_data);
    }
    resetRefreshState(*bas);
    m_data.pDevBas = bas.release();
    return DEVCTRL_OK;
}

int CDevCtrl::CleanupDevice() {
    if (CDevBas* bas = m_data.pDevBas) {
        bas->m_params.RemoveAll();
        m_data.pDevBas = nullptr;
        delete bas;  // stops the NTP worker, then drops the operation manager
    }
    if (m_data.pArchive != nullptr) {
        delete m_data.pArchive;
        m_data.pArchive = nullptr;
    }
    return DEVCTRL_OK;
}

void CDevCtrl::_InitValueArray(int count) {
    // Compared with the count itself, not count + 1: a request for 9 channels
    // leaves a ten-entry array alone, one for 1..8 resizes it to ten each time.
    // Unsized arrays (-1) are sized whatever the count, -1 included.
    if (m_nMaxChannel > 0 && m_nMaxChannel == count)
        return;
    if (count <= 0 && m_nMaxChannel > 0)
        return;
    const int highest = count > 8 ? count : kMinMaxChannel;
    // One entry more than the highest index, which an int cannot hold for INT_MAX.
    if (highest == INT_MAX)
        throw std::bad_alloc();
    // The highest index is recorded only once all three arrays have their size: a growth that
    // fails half-way puts back the sizes it changed (shrinking never allocates), so that the
    // next poll grows them again instead of indexing past their ends.
    const int sizes[] = {m_valueArray.GetSize(), m_stringArray.GetSize(), m_statusArray.GetSize()};
    try {
        m_valueArray.SetSize(highest + 1);
        m_stringArray.SetSize(highest + 1);
        m_statusArray.SetSize(highest + 1);
    } catch (...) {
        m_valueArray.SetSize(sizes[0]);
        m_stringArray.SetSize(sizes[1]);
        m_statusArray.SetSize(sizes[2]);
        throw;
    }
    m_nMaxChannel = highest;
}

void CDevCtrl::notifyCommunication() {
    if (m_data.pCommunication == nullptr)
        return;
    m_data.pCommunication->OnDeviceService(m_data.strDevName.GetBuffer(0));
    m_data.strDevName.ReleaseBuffer();
}

int CDevCtrl::resultValue() const {
    return m_valueArray.IsEmpty() ? 0 : truncateToInt(m_valueArray[0]);
}

int CDevCtrl::CollectDevData(const int* flags, int count) {
    return guarded(__func__, [&] { return doCollectDevData(flags, count); });
}

int CDevCtrl::doCollectDevData(const int* flags, int count) {
    if (flags == nullptr || count == 0)
        return 0;
    notifyCommunication();
    _InitValueArray(count);
    if (m_data.pRtdb == nullptr)
        return kNoDatabase;

    m_statusArray[0] = kStatusComm;
    for (int i = 1; i <= count; ++i)
        m_statusArray[i] = flags[i - 1];

    // Without a logic object (no InitDevice yet) there is nothing to refresh.
    CDevBas* bas = m_data.pDevBas;
    if (bas != nullptr && !m_valueArray.IsEmpty() &&
        (bas->m_refreshDone == 0 || bas->m_initRefreshDone == 0)) {
        bas->refleshData(m_data, m_valueArray, m_stringArray);
        bas->m_refreshDone = 1;
        bas->m_initRefreshDone = 1;
        m_statusArray[0] = kStatusComm;
        for (int i = 1; i < m_statusArray.GetSize(); ++i)
            m_statusArray[i] = kStatusPush;
        if (m_data.pRtdb == nullptr)
            return resultValue();
    }
    pushChannels();
    return resultValue();
}

void CDevCtrl::pushChannels() {
    IRtdb* rtdb = m_data.pRtdb;
    int last = m_nMaxChannel;
    // The refresh may have touched the arrays; never index past any of them.
    for (int size : {m_statusArray.GetSize(), m_valueArray.GetSize(), m_stringArray.GetSize()}) {
        if (size - 1 < last)
            last = size - 1;
    }
    for (int i = 1; i <= last; ++i) {
        if (m_statusArray[i] != kStatusPush)
            continue;
        const int channel = i - 1;
        DATATYPE type = DATATYPE_NONE;
        if (rtdb->GetChannelType(channel, &type) != 0)
            continue;
        switch (type) {
            case DATATYPE_DOUBLE:
                rtdb->SetChannelDouble(channel, m_valueArray[i]);
                break;
            case DATATYPE_STRING: {
                const CString& text = m_stringArray[i];
                std::string value(text.GetString(), static_cast<size_t>(text.GetLength()));
                rtdb->SetChannelString(channel, &value);
                break;
            }
            case DATATYPE_INT:
                rtdb->SetChannelInt(channel, truncateToInt(m_valueArray[i]));
                break;
            default:
                break;
        }
    }
}

int CDevCtrl::runCommand(CString& command) {
    _InitValueArray(0);
    wexa_device::SvrDevIOCtrl(m_data, command, m_valueArray, m_stringArray);
    return resultValue();
}

int CDevCtrl::DevIOCtrl(const char* cmd) {
    return guarded(__func__, [&] {
        if (cmd == nullptr)
            return DEVCTRL_BAD_ARGUMENT;
        notifyCommunication();
        CString command(cmd);
        return runCommand(command);
    });
}

int CDevCtrl::WriteChannel(int channel, DATATYPE type, void* value) {
    return guarded(__func__, [&] {
        if (value == nullptr || channel < 0)
            return DEVCTRL_BAD_ARGUMENT;
        notifyCommunication();
        // The runtime counts channels from 1 in the command text; formed in 64 bits, since
        // INT_MAX + 1 does not fit an int (the dispatcher then refuses the channel).
        const long long number = static_cast<long long>(channel) + 1;
        CString command;
        switch (type) {
            case DATATYPE_INT:
                command.Format("WEXA_WRITE(%lld=%d)", number, *static_cast<const int*>(value));
                break;
            case DATATYPE_DOUBLE:
                command.Format("WEXA_WRITE(%lld=%lf)", number, *static_cast<const double*>(value));
                break;
            case DATATYPE_STRING:
                command.Format("WEXA_WRITE(%lld=%s)", number, static_cast<const char*>(value));
                break;
            default:
                break;  // no value: the command stays empty
        }
        return runCommand(command);
    });
}

int CDevCtrl::UpdataCommunication(ICommunication* comm) {
    if (comm == nullptr)
        return DEVCTRL_BAD_ARGUMENT;
    m_data.pCommunication = comm;  // kept even when the state is not understood
    // The runtime's link state and the record's communication state are inverted.
    switch (comm->GetCommState()) {
        case 1:
            m_data.nCommState = 2;
            return DEVCTRL_OK;
        case 2:
            m_data.nCommState = 1;
            return DEVCTRL_OK;
        default:
            return DEVCTRL_BAD_ARGUMENT;
    }
}

int CDevCtrl::ChannelRefChange(const int* flags, int count) {
    return guarded(__func__, [&] {
        if (flags == nullptr || count == 0)
            return DEVCTRL_BAD_ARGUMENT;
        _InitValueArray(count);
        return DEVCTRL_OK;
    });
}

int CDevCtrl::SetChannelAddress(int, int) {
    return DEVCTRL_OK;
}

extern "C" {

IDeviceCtrl* CreateDeviceCtrl(const char* name, IRtdb* rtdb) {
    // An allocation failure answers null rather than an exception.
    try {
        return new CDevCtrl(name, rtdb);
    } catch (...) {
        return nullptr;
    }
}

int DestroyDeviceCtrl(IDeviceCtrl* dev) {
    if (dev == nullptr)
        return 1;
    // An object of another driver is left alone.
    if (CDevCtrl* device = dynamic_cast<CDevCtrl*>(dev))
        delete device;
    return 0;
}

}  // extern "C"
