// The operation manager, its command parser, the variable accessor and the
// handlers' shared base (file reading and text delivery).
#include "devliunxsys.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "devliunxsys_internal.h"
#include "DevServer.h"
#include "Text.h"

// ---------------------------------------------------------------------------
// ToolsBase

ToolsBase::~ToolsBase() {}

int ToolsBase::ParaCmd(std::string& name, std::vector<std::string>& args,
                       const std::string& command) {
    DEVSYS_INFO("ParaCmd begin", "ordercmd = %s", name.c_str());
    std::size_t open = command.find('(');
    if (command.empty() || open == std::string::npos || command.back() != ')') {
        return -5;
    }
    name = KRVCTRL::slice(command, 0, open);
    std::string rest = KRVCTRL::slice(command, open + 1, command.size() - open - 2);
    // Empty arguments are dropped, so positions shift; blanks are kept.
    std::size_t comma;
    while ((comma = rest.find(',')) != std::string::npos) {
        std::string token = KRVCTRL::slice(rest, 0, comma);
        if (!token.empty())
            args.push_back(token);
        if (comma + 1 == rest.size()) {
            rest.clear();
            break;
        }
        rest = KRVCTRL::slice(rest, comma + 1);
    }
    if (!rest.empty())
        args.push_back(rest);
    return 0;
}

// ---------------------------------------------------------------------------
// DevLinuxOpearDb

namespace {

DATATYPE DevGetParaType(WEXA_DATA& data, const std::string& name) {
    // -2 stays when the name is no variable of the database.
    DATATYPE type = static_cast<DATATYPE>(-2);
    data.GetParamType_Fun(data, CString(name.c_str()), type);
    return type;
}

// Half away from zero; values beyond the int range saturate instead of being undefined.
int DevRoundToInt(double value) {
    return truncateToInt(value > 0 ? std::trunc(value + 0.5) : std::trunc(value - 0.5));
}

}  // namespace

int DevLinuxOpearDb::DevGetParaValue(WEXA_DATA& data, std::string name, int& value) {
    if (data.GetParamType_Fun == nullptr) {
        value = DevStrToInt(name);
        return 0;
    }
    switch (DevGetParaType(data, name)) {
        case DATATYPE_INT:
            if (data.GetParamValue_Fun != nullptr) {
                data.GetParamValue_Fun(data, CString(name.c_str()), DATATYPE_INT, &value);
            }
            return 0;
        case DATATYPE_DOUBLE:
        case DATATYPE_STRING:
            return -1;
        default:
            // No such variable: the operand is a literal number (a non-number reads as 0).
            value = DevStrToInt(name);
            return 0;
    }
}

int DevLinuxOpearDb::DevSetParaValue(WEXA_DATA& data, std::string name, double& value) {
    if (data.GetParamType_Fun == nullptr)
        return -1;
    switch (DevGetParaType(data, name)) {
        case DATATYPE_INT: {
            int rounded = DevRoundToInt(value);
            if (data.SetParamValue_Fun != nullptr) {
                data.SetParamValue_Fun(data, CString(name.c_str()), DATATYPE_INT, &rounded);
            }
            return 0;
        }
        case DATATYPE_DOUBLE:
            if (data.SetParamValue_Fun != nullptr) {
                data.SetParamValue_Fun(data, CString(name.c_str()), DATATYPE_DOUBLE, &value);
            }
            return 0;
        default:
            return -1;
    }
}

int DevLinuxOpearDb::DevSetParaValue(WEXA_DATA& data, std::string name, std::string& value) {
    if (data.GetParamType_Fun == nullptr)
        return -1;
    if (DevGetParaType(data, name) != DATATYPE_STRING)
        return -1;
    if (data.SetParamValue_Fun != nullptr) {
        CString text(value.data(), static_cast<int>(value.size()));
        data.SetParamValue_Fun(data, CString(name.c_str()), DATATYPE_STRING, &text);
    }
    return 0;
}

// ---------------------------------------------------------------------------
// DevLiunxBase

namespace {

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

FilePtr DevOpenForRead(const std::string& path) {
    DEVSYS_INFO("DevReadFile begin", "strFileName = %s", path.c_str());
    FilePtr file(fopen(path.c_str(), "re"));  // "e": close-on-exec
    if (!file)
        DEVSYS_INFO("DevReadFile end", "Read strFileName = %s error", path.c_str());
    return file;
}

// Offset of the first zero byte within the first `size` bytes, or where the data ends.
long DevFindTextEnd(FILE* file, long size) {
    char chunk[4096];
    long pos = 0;
    fseek(file, 0, SEEK_SET);
    while (pos < size) {
        std::size_t want = static_cast<std::size_t>(std::min<long>(sizeof chunk, size - pos));
        std::size_t got = fread(chunk, 1, want, file);
        if (got == 0)
            break;
        const void* zero = memchr(chunk, 0, got);
        if (zero != nullptr)
            return pos + (static_cast<const char*>(zero) - chunk);
        pos += static_cast<long>(got);
    }
    return pos;
}

}  // namespace

DevLiunxBase::DevLiunxBase() : m_pOpearDb(new DevLinuxOpearDb) {}

DevLiunxBase::~DevLiunxBase() {
    delete m_pOpearDb;
}

int DevLiunxBase::DevOpear(WEXA_DATA&, std::vector<std::string>&) {
    return 0;
}

std::string DevLiunxBase::DevReadFile(std::string& path, long /*offset*/, int mode) {
    if (mode != 1)
        return DevReadFileTail(path, std::string::npos);
    FilePtr file = DevOpenForRead(path);
    if (!file)
        return std::string();
    char line[128];
    memset(line, 0, sizeof line);
    if (fgets(line, sizeof line, file.get()) == nullptr)
        line[0] = '\0';
    std::string result(line);
    file.reset();
    DEVSYS_INFO("DevReadFile end", "Read strFileContext = %s ", result.c_str());
    return result;
}

std::string DevLiunxBase::DevReadFileTail(const std::string& path, std::size_t keep) {
    FilePtr file = DevOpenForRead(path);
    if (!file)
        return std::string();
    fseek(file.get(), 0, SEEK_END);
    long size = std::max(ftell(file.get()), 0L);
    DEVSYS_INFO("DevReadFile begin", "strFileName = %s,flen = %d", path.c_str(),
                static_cast<int>(size));
    // A whole read delivers the text up to its first zero byte. Only the last `keep`
    // bytes of that text are ever delivered, so only those are held in memory: the
    // panel has little of it and logs may be large. The text end is found by a
    // streaming scan, so the result is the same as reading the file whole.
    std::string result;
    try {
        if (keep > 0) {
            long end =
                static_cast<std::size_t>(size) <= keep ? size : DevFindTextEnd(file.get(), size);
            long start = static_cast<std::size_t>(end) > keep ? end - static_cast<long>(keep) : 0;
            result.resize(static_cast<std::size_t>(end - start));
            fseek(file.get(), start, SEEK_SET);
            result.resize(fread(&result[0], 1, result.size(), file.get()));
            result.resize(std::find(result.begin(), result.end(), '\0') - result.begin());
        }
    } catch (const std::bad_alloc&) {
        DEVSYS_INFO("DevReadFile end", "Read strFileName = %s error", path.c_str());
        return std::string();
    }
    file.reset();
    DEVSYS_INFO("DevReadFile end", "Read strFileName = %s,len = %d", path.c_str(),
                static_cast<int>(size));
    return result;
}

int DevLiunxBase::DevGetCutLen(WEXA_DATA& data, const std::vector<std::string>& args,
                               std::size_t& cut) {
    if (args.size() != 4)
        return -5;
    int len = 0;
    int r = m_pOpearDb->DevGetParaValue(data, args[1], len);
    DEVSYS_INFO("AppAppLog DevOpear begin", "getLen = %d", len);
    if (r != 0 || len < 0) {
        DevSetStatus(*m_pOpearDb, data, args[3], 4.0);
        return -4;
    }
    // len counts KiB. A 32-bit product would wrap from 2097152 KiB on; it is clamped
    // instead, so an oversized request simply means the whole log.
    cut = static_cast<std::size_t>(std::min<std::int64_t>(std::int64_t{len} * 1024, INT_MAX));
    return 0;
}

int DevLiunxBase::DevDeliverContext(WEXA_DATA& data, const std::string& content, std::size_t cut,
                                    const std::vector<std::string>& args) {
    // Cut on a byte boundary, without regard to lines or multi-byte characters.
    std::string text =
        cut < content.size() ? KRVCTRL::slice(content, content.size() - cut) : content;
    if (m_pOpearDb->DevSetParaValue(data, args[2], text) != 0) {
        DevSetStatus(*m_pOpearDb, data, args[3], 4.0);
        return -4;
    }
    DevSetStatus(*m_pOpearDb, data, args[3], 0.0);
    return 0;
}

int DevLiunxBase::DevSetContext(WEXA_DATA& data, const std::string& content,
                                const std::vector<std::string>& args) {
    std::size_t cut = 0;
    int r = DevGetCutLen(data, args, cut);
    if (r != 0)
        return r;
    return DevDeliverContext(data, content, cut, args);
}

int DevLiunxBase::DevReadLog(WEXA_DATA& data, const std::string& path,
                             const std::vector<std::string>& args) {
    // The cut is known before reading, so only the delivered tail is read.
    std::size_t cut = 0;
    int r = DevGetCutLen(data, args, cut);
    if (r != 0)
        return r;
    return DevDeliverContext(data, DevReadFileTail(path, cut), cut, args);
}

// ---------------------------------------------------------------------------
// DevManger

DevManger::DevManger() : m_pTools(new ToolsBase), m_pOpearDb(new DevLinuxOpearDb) {}

DevManger::~DevManger() {
    for (auto& entry : m_handlers) {
        delete entry.second;
        entry.second = nullptr;
    }
    m_handlers.clear();
    delete m_pTools;
    delete m_pOpearDb;
}

void DevManger::RegisterOpear(DEVSYSOPEAR key, DevLiunxBase* handler) {
    DevLiunxBase*& slot = m_handlers[key];
    if (slot != handler)
        delete slot;
    slot = handler;
}

int DevManger::GetOpearMode(WEXA_DATA& data, int& mode, const std::vector<std::string>& args) {
    if (args.size() != 4)
        return -5;
    int value = 0;
    if (m_pOpearDb->DevGetParaValue(data, args[0], value) == 0) {
        mode = value;
        return 0;
    }
    DevSetStatus(*m_pOpearDb, data, args[3], 4.0);
    return -4;
}

int DevManger::DevOpear(WEXA_DATA& data, std::string command) {
    DEVSYS_INFO("DevOpear begin", "strCmd = %s", command.c_str());
    DEVSYSOPEAR key = SYS_OPEAR_NONE;
    if (!command.empty()) {
        m_args.clear();
        m_opearName.clear();
        if (m_pTools->ParaCmd(m_opearName, m_args, command) != 0) {
            DEVSYS_INFO("DevOpear end", "strCmd = %s error", command.c_str());
            return -5;
        }
        bool appLog = m_opearName == "ReadAppLog";
        if (appLog || m_opearName == "ReadSysLog") {
            int mode = 0;
            int r = GetOpearMode(data, mode, m_args);
            if (r != 0)
                return r;
            if (appLog && mode >= 0 && mode <= 2) {
                key = static_cast<DEVSYSOPEAR>(SYS_OPEAR_APPLOG + mode);
            } else if (!appLog && mode == 0) {
                key = SYS_OPEAR_SYSEXECPLOG;
            } else {
                DevSetStatus(*m_pOpearDb, data, m_args[3], 4.0);
                return -4;
            }
        } else if (m_opearName == "GetCpuUse") {
            key = SYS_OPEAR_CPUUSE;
        } else if (m_opearName == "GetMemUse") {
            key = SYS_OPEAR_MEMUSE;
        }
    }
    // An unknown operation succeeds silently.
    int result = 0;
    auto found = m_handlers.find(key);
    if (found != m_handlers.end() && found->second != nullptr) {
        result = found->second->DevOpear(data, m_args);
    }
    DEVSYS_INFO("DevOpear end", "strCmd = %s", command.c_str());
    return result;
}
