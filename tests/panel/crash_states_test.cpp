// Power cuts during settings writes. A child process loads the driver and sends commands that
// write the three settings files, its file-system calls recorded (tools/crash-states); every
// state a power cut at any of those calls could leave (the model: CrashStates.h) is then read as
// another program of the panel reads it, with its own QSettings: each file whole (or missing
// while it was), every key holding its value from before or after the command in progress, owner
// and mode as they were. A command that has returned has its writes on the medium.
#include <errno.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QSettings>
#include <QStringList>
#include <cstdio>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "CrashStates.h"
#include "FsRecord.h"
#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

using namespace krv_test;

namespace {

using Keys = std::map<std::string, std::string>;
const char* const kPaths[] = {kAppCfg, "/usr/wexa_app/config/ntp_param_cfg.ini", kVncCfg};

// The keys QSettings reads from a file, and under "" whether the file is missing, whole (as Qt
// writes files: ending in a line break, no zero byte) or cut.
Keys keysOf(const crash_states::File* file) {
    static std::map<std::string, Keys> parsed;
    if (file == nullptr)
        return {{"", "missing"}};
    const std::string& data = file->data;
    if (!parsed.count(data)) {
        // QSettings keeps what it parsed by name: a new name for each contents.
        const std::string path = "/tmp/state" + std::to_string(parsed.size()) + ".ini";
        writeFile(path, data);
        Keys& keys = parsed[data];
        QSettings settings(QString::fromUtf8(path.c_str()), QSettings::IniFormat);
        settings.setIniCodec("UTF-8");
        foreach (const QString& key, settings.allKeys())
            keys[key.toUtf8().constData()] = settings.value(key).toString().toUtf8().constData();
        const bool whole = !data.empty() && data.back() == '\n' && data.find('\0') == data.npos;
        keys[""] = whole ? "whole" : "cut";
    }
    return parsed[data];
}

const crash_states::File* find(const crash_states::State& state, const std::string& path) {
    const auto file = state.find(path);
    return file == state.end() ? nullptr : &file->second;
}

// What of `file` is neither as in version `a` nor as in `b`; empty when nothing.
std::string wrong(const crash_states::File* file, const crash_states::File* a,
                  const crash_states::File* b) {
    Keys got = keysOf(file), was = keysOf(a), will = keysOf(b);
    std::set<std::string> keys;
    for (const Keys* k : {&got, &was, &will})
        for (const auto& key : *k)
            keys.insert(key.first);
    for (const std::string& key : keys)
        if (got[key] != was[key] && got[key] != will[key])
            return key + "=" + got[key];
    auto sameAttributes = [file](const crash_states::File* v) {
        return v && v->mode == file->mode && v->uid == file->uid && v->gid == file->gid;
    };
    return file && !sameAttributes(a) && !sameAttributes(b) ? "owner or mode" : "";
}

TEST(CrashStates, EveryKeyOldOrNewInEveryStateAPowerCutLeaves) {
    sim::setLogOutput("-", 0);
    ASSERT_TRUE(writeFile(kAppCfg, "[DEVICE]\nbuzz_duration=250\nbacklight_duration=60000\n"));
    ASSERT_EQ(chmod(kAppCfg, 0640), 0);
    const char trace[] = "/tmp/settings.trace";
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        host::Runtime rt{KRV_DRIVER_PATH};
        if (!rt.ok() || rt.start() != 0 ||
            !krv_fsrecord_start(trace, "/usr/wexa_app/config:/etc/iot_cfg"))
            _exit(1);
        // The NTP file is made by the first of these.
        for (const char* command : {"SetNTPFreq(5)", "WEXA_WRITE(4=4321)", "WEXA_WRITE(6=61)",
                                    "SetNTPServer(10.0.0.1,second.panel.test,,)",
                                    "ModVncPwd(abcdefgh)", "WEXA_WRITE(5=0)"}) {
            rt.device().command(command);
            krv_fsrecord_mark();
        }
        _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    const crash_states::Trace recorded(trace);
    ASSERT_TRUE(recorded.ok());
    const std::vector<crash_states::State>& versions = recorded.versions();
    ASSERT_EQ(versions.size(), 8u);
    for (const char* path : kPaths) {
        SCOPED_TRACE(path);
        // Nothing went unrecorded: the calls replayed make the files as they are.
        ASSERT_TRUE(find(versions.back(), path));
        EXPECT_EQ(find(versions.back(), path)->data, readFile(path));
        // Owner and mode stay those of the start.
        const crash_states::File* start = find(versions[0], path);
        for (const crash_states::State& version : versions) {
            const crash_states::File* file = find(version, path);
            EXPECT_TRUE(!start || (file->uid == start->uid && file->gid == start->gid &&
                                   file->mode == start->mode));
        }
    }
    EXPECT_EQ(iniValue(kAppCfg, "backlight_duration"), "61000");
    EXPECT_EQ(iniValue(kVncCfg, "passwd"), "abcdefgh");

    std::vector<std::string> faults;
    long faulty = 0;
    const long states = recorded.explore([&](const crash_states::State& state, int marks) {
        std::string fault;
        for (const char* path : kPaths) {
            const std::string wrongly = wrong(find(state, path), find(versions[marks], path),
                                              find(versions[marks + 1], path));
            fault = fault.empty() && !wrongly.empty() ? path + (": " + wrongly) : fault;
        }
        faulty += !fault.empty();
        if (!fault.empty() && faults.size() < 5)
            faults.push_back("after command " + std::to_string(marks) + ": " + fault);
    });
    EXPECT_EQ(faults, std::vector<std::string>());
    std::printf("crash states, Qt %d: %ld, %ld of them faulty\n", KRV_QT_MAJOR, states, faulty);
}

// A write in which any one file-system call fails (a full file system, an I/O error, an owner
// this process may not give) leaves the file old or new, and nothing beside it. Every call of
// each kind fails in turn, after a first write with none failing ("") that gives the new file.
TEST(CrashStates, AFailedCallLeavesTheFileOldOrNew) {
    sim::setLogOutput("-", 0);
    const std::string old = "[DEVICE]\nbuzz_duration=250\n", dir = "/usr/wexa_app/config";
    const std::string files = run("ls -A " + dir).out;
    std::string written;
    for (const char* op : {"", "create", "write", "trunc", "fchown", "fchmod", "fsync", "rename"}) {
        for (int nth = 1, failed = 1; failed == 1; ++nth) {
            SCOPED_TRACE(std::string(op) + " " + std::to_string(nth));
            ASSERT_TRUE(writeFile(kAppCfg, old));
            std::fflush(nullptr);
            const pid_t child = fork();
            if (child == 0) {
                host::Runtime rt{KRV_DRIVER_PATH};
                if (!rt.ok() || rt.start() != 0 || !krv_fsrecord_start("/tmp/trace", dir.c_str()))
                    _exit(2);
                krv_fsrecord_fail(op, nth, *op == 'f' ? EPERM : ENOSPC);
                rt.device().command("WEXA_WRITE(4=4321)");
                _exit(krv_fsrecord_failed());
            }
            int status = -1;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            failed = WEXITSTATUS(status);
            ASSERT_LT(failed, 2);
            written = *op ? written : readFile(kAppCfg);
            EXPECT_TRUE(readFile(kAppCfg) == old || readFile(kAppCfg) == written);
            EXPECT_EQ(run("ls -A " + dir + " | grep -v krvnew-" + std::to_string(child)).out,
                      files);
        }
    }
    EXPECT_EQ(written, "[DEVICE]\nbuzz_duration=4321\n");
}

}  // namespace
