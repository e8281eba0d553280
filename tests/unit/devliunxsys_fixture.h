// A device record whose variables live in the host's database, reached through the device's
// parameter functions as the operations reach them, and a manager with the six handlers.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "DevBas.h"
#include "DevCtrl.h"
#include "Sandbox.h"
#include "devliunxsys.h"
#include "host/Database.h"

class SysOpsTest : public ::testing::Test {
protected:
    SysOpsTest() {
        db.defineInt("st", 7);
        db.defineText("txt", "old");
        data.pDevBas = &bas;
        data.pRtdbByName = &db;
        data.GetParamType_Fun = &CDevCtrl::GetParamType_Fun;
        data.GetParamValue_Fun = &CDevCtrl::GetParamValue_Fun;
        data.SetParamValue_Fun = &CDevCtrl::SetParamValue_Fun;
        mgr.RegisterOpear(SYS_OPEAR_CPUUSE, new DevLiunxCpuUse);
        mgr.RegisterOpear(SYS_OPEAR_MEMUSE, new DevLiunxMemUse);
        mgr.RegisterOpear(SYS_OPEAR_APPLOG, new DevLiunxAppLog);
        mgr.RegisterOpear(SYS_OPEAR_APPEXECPLOG, new DevLinuxAppExecpLog);
        mgr.RegisterOpear(SYS_OPEAR_APPDEALLOG, new DevLiunxAppDealLog);
        mgr.RegisterOpear(SYS_OPEAR_SYSEXECPLOG, new DevLinuxSysExecpLog);
    }
    int status() { return db.variable("st")->intValue; }
    std::string text() { return db.variable("txt")->text; }

    host::Database db;
    CDevBas bas;
    WEXA_DATA data{};
    DevManger mgr;
};
