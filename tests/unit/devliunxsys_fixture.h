// A device record whose variables live in a small table, and a manager with the six handlers.
#pragma once

#include <map>
#include <string>

#include <gtest/gtest.h>

#include "DevBas.h"
#include "Sandbox.h"
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
