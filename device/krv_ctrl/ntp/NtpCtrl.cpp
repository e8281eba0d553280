// The NTP controller: creation, setters, settings copies, the worker and its end.
#include "NtpCtrl.h"

#include <unistd.h>

#include <exception>

#include "Logger.h"
#include "WexaRuntime.h"

namespace {

const int passSleepMs = 200;
const long long msPerHour = 3600000;
const int retrySleeps = 5;

// Stores `value` into `field` when it is in range and differs, rewriting the file.
int setChecked(NtpCtrl& ctrl, int& field, int value, bool inRange) {
    std::lock_guard<std::mutex> lock(ctrl.m_mutex);
    if (!inRange)
        return -4;
    if (field != value) {
        field = value;
        ctrl.writeCfg(ctrl.m_cfgPath);
    }
    return 0;
}

// The file's period as the worker schedules it. The record keeps what the file says (the channel
// shows it), but a period of 0, a negative one or text (read as 0) would make a synchronisation
// due on every pass: a probe, a date command and an RTC write five times a second, for as long
// as the file stays so. Nothing shorter than an hour is scheduled.
long long scheduledHours(int ntpFreq) {
    return ntpFreq < 1 ? 1 : ntpFreq;
}

}  // namespace

NtpCtrl::NtpCtrl(const QString& cfgPath) : m_cfgPath(cfgPath), m_thread(0), m_running(1) {
    readCfg(m_cfgPath);
    // A panel without the worker still answers every command, so a failed start is not an
    // error; the handle is cleared so that the destructor joins nothing.
    if (pthread_create(&m_thread, nullptr, &NtpCtrl::ThreadOfExecNtp, this) != 0)
        m_thread = 0;
}

NtpCtrl::~NtpCtrl() {
    m_running = 0;
    // The pause remembers the stop: a worker between its test of m_running and its wait does
    // not sleep through it.
    m_pause.stop();
    if (m_thread != 0) {
        pthread_join(m_thread, nullptr);
        m_thread = 0;
    }
}

ntpCfgParam NtpCtrl::getParam() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return *this;
}

// The range tests are unsigned so that every negative value is rejected.
int NtpCtrl::enableNtp(int value) {
    return setChecked(*this, m_ntpSwitch, value, static_cast<unsigned>(value) < 2u);
}

int NtpCtrl::setNtpMode(int value) {
    return setChecked(*this, m_ntpMode, value, static_cast<unsigned>(value) < 2u);
}

int NtpCtrl::setNtpFreq(int value) {
    return setChecked(*this, m_ntpFreq, value, static_cast<unsigned>(value) - 1u < 24u);
}

int NtpCtrl::setNtpServers(const QString servers[4]) {
    std::lock_guard<std::mutex> lock(m_mutex);
    bool differs = false;
    for (int i = 0; i < 4; ++i)
        if (m_ntpServer[i] != servers[i])
            differs = true;
    if (differs) {
        for (int i = 0; i < 4; ++i)
            m_ntpServer[i] = servers[i];
        writeCfg(m_cfgPath);
    }
    return 0;
}

int NtpCtrl::setNtpServer(int index, const QString& server) {
    if (static_cast<unsigned>(index) >= 4u)
        return -4;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_ntpServer[index] != server) {
        m_ntpServer[index] = server;
        writeCfg(m_cfgPath);
    }
    return 0;
}

void* NtpCtrl::ThreadOfExecNtp(void* arg) {
    NtpCtrl* self = static_cast<NtpCtrl*>(arg);
    ntpCfgParam last;
    long long start = Wexa_GetTickCount();
    bool reported = false;
    bool retry = false;
    // An exception leaving this thread would end the whole runtime. A pass that throws (an
    // allocation failure, a mutex error) counts as a failed synchronisation instead: reported
    // once, retried after the retry interval, and clean-up still finds a thread to join.
    while (self->m_running) {
        try {
            self->workerPass(last, start, retry);
        } catch (const std::exception& e) {
            retry = self->workerFault(reported, e.what());
        } catch (...) {
            retry = self->workerFault(reported, "unknown exception");
        }
    }
    return nullptr;
}

void NtpCtrl::workerPass(ntpCfgParam& last, long long& start, bool& retry) {
    ntpCfgParam current = getParam();
    bool trigger = false;
    if (current != last) {
        bool switchedOn = last.m_ntpSwitch == 0 && current.m_ntpSwitch == 1;
        bool autoEntered = last.m_ntpMode == 0 && current.m_ntpMode == 1;
        bool periodChanged = last.m_ntpFreq != current.m_ntpFreq;
        trigger = switchedOn || autoEntered || periodChanged;
        last = current;
    }
    if (last.m_ntpSwitch == 1 && last.m_ntpMode == 1) {
        long long now = Wexa_GetTickCount();
        bool due = retry || trigger || now - start >= scheduledHours(last.m_ntpFreq) * msPerHour;
        if (due) {
            if (!m_running) {
                start = now;
            } else {
                syncWithRetries();
                start = Wexa_GetTickCount();
            }
        }
    }
    retry = false;
    pause();
}

bool NtpCtrl::workerFault(bool& reported, const char* what) {
    if (!reported)
        logger_printf(3, "ThreadOfExecNtp", "device/krv_ctrl/DevBas", __LINE__, 0,
                      LOGGER_LEVEL_ERROR, "ThreadOfExecNtp error", "%s", what);
    reported = true;
    // Plain sleeps: the wait itself must not be able to fail in turn.
    for (int i = 0; i < retrySleeps && m_running; ++i)
        usleep(static_cast<useconds_t>(passSleepMs) * 1000u);
    return true;
}

void NtpCtrl::syncWithRetries() {
    // The settings are not consulted here: once NTP is off, execNtp returns 0 at once.
    while (execNtp() != 0) {
        for (int i = 0; i < retrySleeps; ++i) {
            pause();
            if (!m_running)
                return;
        }
    }
}

void NtpCtrl::pause() {
    // A wait rather than a sleep: clean-up must not wait out a whole pass.
    m_pause.wait(passSleepMs);
}
