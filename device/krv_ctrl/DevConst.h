// The driver's fixed vocabulary: identity, command keywords, property texts and
// channel names. Each translation unit that includes this header gets its own
// copy (namespace-scope `static`), built at library load.
#pragma once

#include "CString.h"

static const CString DEV_STR_HELPFILENAME = "KRVcontrol";
static const CString DEV_STR_NAME = "KRV系统控制";
static const CString DEV_STR_DLLNAMEMU = "KRVcontrolU.drv";
static const CString DEV_STR_DLLNAMECE = "KRVcontrolE.drv";

// Name of channel index 0, the communication state.
static const CString DEV_STR_COMMUNICATEFLAG = "通讯状态";

// Command keywords; the dispatcher compares them ignoring case.
static const CString DEV_STR_WEXAWRITE = "WEXA_WRITE";
static const CString DEV_STR_SETHIDDENPRO = "SetHiddenPro";
static const CString DEV_STR_GETHIDDENPRO = "GetHiddenPro";
static const CString DEV_STR_READ = "READ";
static const CString DEV_STR_WRITE = "WRITE";
static const CString IOCTRL_STR_PROPERTYNAME[2] = {DEV_STR_READ, DEV_STR_WRITE};
static const CString DEV_STR_REFLESH = "REFLESH";
static const CString DEV_STR_BLON = "BACKLIGHTON";
static const CString DEV_STR_BLOFF = "BACKLIGHTOFF";
static const CString DEV_STR_REBOOT = "REBOOT";
static const CString DEV_MOD_VNC_PWD = "ModVncPwd";

// The index of the matching keyword selects the NTP operation.
static const CString NTP_CTRL_CMD[5] = {"EnableNTP", "SetNTPMode", "SetNTPFreq", "SetNTPServer",
                                        "ExecNTP"};

static const CString DEV_STR_PROPERTYHEAD0X = "0X";

// The editor's two device properties; the configuration blob's two parameters
// (defaults 0 and 200) follow the same order.
static const CString DEV_STR_PROPERTYNAME[2] = {"设备地址", "通讯等待时间"};
static const CString DEV_STR_PROPERTLIST[2] = {"0 - 不求校验", "1 - 求校验"};

static const CString DEV_STR_ORDER[5] = {"", "#", "$", "6", "?"};

static const CString DEV_STR_CHLNAME[10] = {"通道01", "通道02", "通道03", "通道04", "通道05",
                                            "通道06", "通道07", "通道08", "通道09", "通道10"};
