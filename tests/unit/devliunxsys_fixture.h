// A device record for the system operations, its variables held in a small table,
// and fake /proc files bound over the real ones.
#pragma once

#include <sys/mount.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "DevBas.h"
#include "devliunxsys.h"

struct SysVar {
    DATATYPE type;
    int i = 0;
    double d = 0;
    std::string s;
};

class SysOpsTest : public ::testing::Test {
protected:
    SysOpsTest() {
        vars().clear();
        data.pDevBas = &bas;
        data.GetParamType_Fun = &GetType;
        data.GetParamValue_Fun = &GetValue;
        data.SetParamValue_Fun = &SetValue;
        mgr.RegisterOpear(SYS_OPEAR_CPUUSE, new DevLiunxCpuUse);
        mgr.RegisterOpear(SYS_OPEAR_MEMUSE, new DevLiunxMemUse);
        mgr.RegisterOpear(SYS_OPEAR_APPLOG, new DevLiunxAppLog);
        mgr.RegisterOpear(SYS_OPEAR_APPEXECPLOG, new DevLinuxAppExecpLog);
        mgr.RegisterOpear(SYS_OPEAR_APPDEALLOG, new DevLiunxAppDealLog);
        mgr.RegisterOpear(SYS_OPEAR_SYSEXECPLOG, new DevLinuxSysExecpLog);
    }

    static std::map<std::string, SysVar>& vars() {
        static std::map<std::string, SysVar> table;
        return table;
    }
    static void Var(const std::string& name, DATATYPE type, double v = 0, std::string s = "") {
        vars()[name] = SysVar{type, static_cast<int>(v), v, std::move(s)};
    }
    static double Num(const std::string& name) {
        const SysVar& v = vars().at(name);
        return v.type == DATATYPE_INT ? v.i : v.d;
    }
    static const std::string& Text(const std::string& name) { return vars().at(name).s; }

    static int GetType(WEXA_DATA&, CString name, DATATYPE& type) {
        auto it = vars().find(name.GetString());
        if (it == vars().end())
            return -1;
        type = it->second.type;
        return 0;
    }
    static int GetValue(WEXA_DATA&, CString name, DATATYPE type, void* out) {
        const SysVar& v = vars().at(name.GetString());
        if (type == DATATYPE_INT)
            *static_cast<int*>(out) = v.i;
        if (type == DATATYPE_DOUBLE)
            *static_cast<double*>(out) = v.d;
        if (type == DATATYPE_STRING)
            *static_cast<CString*>(out) = v.s.c_str();
        return 0;
    }
    static int SetValue(WEXA_DATA&, CString name, DATATYPE type, void* value) {
        SysVar& v = vars().at(name.GetString());
        if (type == DATATYPE_INT)
            v.i = *static_cast<int*>(value);
        if (type == DATATYPE_DOUBLE)
            v.d = *static_cast<double*>(value);
        if (type == DATATYPE_STRING) {
            const CString& text = *static_cast<CString*>(value);
            v.s.assign(text.GetString(), text.GetLength());
        }
        return 0;
    }

    CDevBas bas;
    WEXA_DATA data{};
    DevManger mgr;
};

inline void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

inline std::string ReadFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// A file of our own bound over a /proc file for the object's lifetime; Set rewrites
// it in place, so the bind keeps showing the new text.
class FakeProcFile {
public:
    FakeProcFile(const std::string& procPath, const std::string& content)
        : m_proc(procPath), m_file("/tmp/fake_" + procPath.substr(procPath.rfind('/') + 1)) {
        Set(content);
        m_bound = mount(m_file.c_str(), m_proc.c_str(), nullptr, MS_BIND, nullptr) == 0;
        EXPECT_TRUE(m_bound) << "bind over " << m_proc;
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
