// The NTP controller: settings with range-checked setters, one synchronisation
// on demand, and the worker thread that synchronises periodically.
#pragma once

#include <pthread.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include <QString>

#include "WorkerPause.h"
#include "ntpCfgParam.h"

struct hostent;

class NtpCtrl : public ntpCfgParam {
public:
    // Reads the settings file at `cfgPath` and starts the worker.
    explicit NtpCtrl(const QString& cfgPath);
    // Stops and joins the worker.
    ~NtpCtrl();
    NtpCtrl(const NtpCtrl&) = delete;
    NtpCtrl& operator=(const NtpCtrl&) = delete;

    ntpCfgParam getParam();
    // 0 accepted, -4 out of range.
    int enableNtp(int value);
    int setNtpMode(int value);
    int setNtpFreq(int value);
    // Replaces the four servers and rewrites the file when any differs, under the mutex (the
    // worker reads the same list); 0.
    int setNtpServers(const QString servers[4]);
    // Sets one server (index 0..3) and rewrites the file when it differs; 0, or -4 for
    // another index.
    int setNtpServer(int index, const QString& server);

    // One synchronisation now: 0 done or NTP off, -10 failure.
    int execNtp();

    static bool isIp(QString const& text);
    // The resolver file's name-server rule: a dotted address, each number 0 to 255 written
    // with one to three digits (one- or two-digit numbers may start with 0).
    static bool isNameServerAddress(const std::string& text);
    bool pingNetWork(bool serversAreAddresses);
    struct hostent* getHostByName(const std::vector<QString>& servers);
    // The name servers of the system resolver, read under its lock; empty when the
    // file is missing or breaks the "nameserver" line rules four times in a row.
    static std::vector<std::string> readNameServers();

    static void* ThreadOfExecNtp(void* arg);

    QString m_cfgPath;
    pthread_t m_thread;
    // Cleared by the destructor while the worker reads it: atomic, since volatile alone leaves
    // the two threads racing.
    std::atomic<unsigned char> m_running;
    std::mutex m_mutex;

private:
    // The configured servers as they stand (`all`, empty ones included) and sorted into
    // dotted addresses and names, in configuration order; returns how many are addresses.
    int classifyServers(std::vector<QString>& all, std::vector<QString>& addresses,
                        std::vector<QString>& names);
    // One pass of the worker: looks at the settings, synchronises when due (or when `retry`
    // asks for it), pauses.
    void workerPass(ntpCfgParam& last, long long& start, bool& retry);
    // Reports an exception that ended a pass (only the first), waits the retry interval and
    // returns true: the next pass retries.
    bool workerFault(bool& reported, const char* what);
    // execNtp until it succeeds or the worker is told to stop.
    void syncWithRetries();
    // One 200 ms pause of the worker, cut short when the destructor stops it.
    void pause();

    WorkerPause m_pause;
};
