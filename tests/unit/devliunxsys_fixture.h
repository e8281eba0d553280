// A device record whose variables live in a small table, the six handlers, and fake /proc
// files bound over the real ones.
#pragma once

#include <sys/mount.h>

#include <fstream>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "DevBas.h"
#include "devliunxsys.h"

struct SysVar {
    DATATYPE type;
    double num;
    std::string text;
};
inline std::map<std::string, SysVar> g_vars;

inline int VarType(WEXA_DATA&, CString name, DATATYPE& type) {
    auto it = g_vars.find(name.GetString());
    if (it == g_vars.end())
        return -1;
    type = it->second.type;
    return 0;
}
inline int VarGet(WEXA_DATA&, CString name, DATATYPE type, void* out) {
    SysVar& v = g_vars.at(name.GetString());
    if (type == DATATYPE_INT)
        *static_cast<int*>(out) = static_cast<int>(v.num);
    if (type == DATATYPE_DOUBLE)
        *static_cast<double*>(out) = v.num;
    if (type == DATATYPE_STRING)
        *static_cast<CString*>(out) = v.text.c_str();
    return 0;
}
inline int VarSet(WEXA_DATA&, CString name, DATATYPE type, void* value) {
    SysVar& v = g_vars.at(name.GetString());
    if (type == DATATYPE_INT)
        v.num = *static_cast<int*>(value);
    if (type == DATATYPE_DOUBLE)
        v.num = *static_cast<double*>(value);
    if (type == DATATYPE_STRING) {
        const CString& text = *static_cast<CString*>(value);
        v.text.assign(text.GetString(), text.GetLength());
    }
    return 0;
}

class SysOpsTest : public ::testing::Test {
protected:
    SysOpsTest() {
        g_vars = {{"st", {DATATYPE_INT, 7, ""}}, {"txt", {DATATYPE_STRING, 0, "old"}}};
        data.pDevBas = &bas;
        data.GetParamType_Fun = &VarType;
        data.GetParamValue_Fun = &VarGet;
        data.SetParamValue_Fun = &VarSet;
        mgr.RegisterOpear(SYS_OPEAR_CPUUSE, new DevLiunxCpuUse);
        mgr.RegisterOpear(SYS_OPEAR_MEMUSE, new DevLiunxMemUse);
        mgr.RegisterOpear(SYS_OPEAR_APPLOG, new DevLiunxAppLog);
        mgr.RegisterOpear(SYS_OPEAR_APPEXECPLOG, new DevLinuxAppExecpLog);
        mgr.RegisterOpear(SYS_OPEAR_APPDEALLOG, new DevLiunxAppDealLog);
        mgr.RegisterOpear(SYS_OPEAR_SYSEXECPLOG, new DevLinuxSysExecpLog);
    }
    CDevBas bas;
    WEXA_DATA data{};
    DevManger mgr;
};

inline void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

// Our file bound over a /proc file while the object lives; Set rewrites it in place.
class FakeProcFile {
public:
    FakeProcFile(const std::string& proc, const std::string& content)
        : m_proc(proc), m_file("/tmp/fake_" + proc.substr(proc.rfind('/') + 1)) {
        Set(content);
        m_bound = mount(m_file.c_str(), m_proc.c_str(), nullptr, MS_BIND, nullptr) == 0;
        EXPECT_TRUE(m_bound) << m_proc;
    }
    ~FakeProcFile() {
        if (m_bound)
            umount(m_proc.c_str());
    }
    void Set(const std::string& content) { WriteFile(m_file, content); }

private:
    std::string m_proc, m_file;
    bool m_bound = false;
};
