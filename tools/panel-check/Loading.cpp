// Loading: the C/C++ runtime's symbol versions, QtCore's major version and the std::string layout
// against the driver's, the HAL and its six functions, and the driver loaded as the runtime loads
// it. Libraries are read as files; what is loaded is loaded in a child process.
#include <dlfcn.h>
#include <dirent.h>
#include <fnmatch.h>
#include <stdint.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "AbiProbe.h"
#include "Checks.h"
#include "Child.h"

namespace panel_check {

namespace {

const char kArea[] = "loading";
const int kHalTimeoutMs = 15000;
const int kDriverTimeoutMs = 60000;  // QtCore's start-up under an emulator is slow
const char* const kHalFunctions[] = {"hal_get_network_count",  "hal_get_network",
                                     "hal_get_network_byname", "hal_set_ip_addr",
                                     "hal_set_lcd_status",     "hal_set_rtc_time"};

std::string join(const std::vector<std::string>& items, const char* separator) {
    std::string text;
    for (size_t i = 0; i < items.size(); ++i)
        text += (i ? separator : "") + items[i];
    return text;
}

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : std::string(path, 0, slash);
}

void splitList(const char* list, std::vector<std::string>& into) {
    std::string item;
    for (const char* p = list ? list : "";; ++p) {
        if (*p == ':' || *p == ';' || *p == '\0') {
            if (!item.empty())
                into.push_back(item);
            item.clear();
            if (*p == '\0')
                return;
        } else {
            item += *p;
        }
    }
}

// The directories of ld.so.conf and the files it includes.
void configuredDirectories(const std::string& file, int depth, std::vector<std::string>& dirs) {
    std::FILE* in = std::fopen(file.c_str(), "r");
    if (!in || depth > 8) {
        if (in)
            std::fclose(in);
        return;
    }
    char buffer[1024];
    while (std::fgets(buffer, sizeof buffer, in)) {
        std::string line(buffer);
        line = std::string(line, 0, line.find('#'));
        const size_t first = line.find_first_not_of(" \t\r\n");
        if (first == std::string::npos)
            continue;
        line = std::string(line, first, line.find_last_not_of(" \t\r\n") + 1 - first);
        if (startsWith(line, "include") && line.size() > 8 && (line[7] == ' ' || line[7] == '\t')) {
            std::string pattern(line, line.find_first_not_of(" \t", 7));
            if (pattern[0] != '/')
                pattern = directoryOf(file) + "/" + pattern;
            // Patterns name files of one directory, e.g. ld.so.conf.d/*.conf.
            const std::string dir = directoryOf(pattern);
            const std::string name(pattern, pattern.rfind('/') + 1);
            std::vector<std::string> files;
            if (DIR* listing = opendir(dir.c_str())) {
                while (const struct dirent* entry = readdir(listing))
                    if (fnmatch(name.c_str(), entry->d_name, FNM_PERIOD) == 0)
                        files.push_back(dir + "/" + entry->d_name);
                closedir(listing);
            }
            std::sort(files.begin(), files.end());
            for (size_t i = 0; i < files.size(); ++i)
                configuredDirectories(files[i], depth + 1, dirs);
        } else if (!startsWith(line, "hwcap")) {
            dirs.push_back(line);
        }
    }
    std::fclose(in);
}

// Where the dynamic loader looks for the driver's libraries, in its order.
std::vector<std::string> searchPath(const ElfFile& driver) {
    std::vector<std::string> dirs;
    if (driver.runpath.empty())
        dirs = driver.rpath;
    splitList(std::getenv("LD_LIBRARY_PATH"), dirs);
    dirs.insert(dirs.end(), driver.runpath.begin(), driver.runpath.end());
    configuredDirectories("/etc/ld.so.conf", 0, dirs);
    if (driver.is64) {
        dirs.push_back("/lib64");
        dirs.push_back("/usr/lib64");
    }
    dirs.push_back("/lib");
    dirs.push_back("/usr/lib");
    const std::string origin = directoryOf(driver.path);
    for (size_t i = 0; i < dirs.size(); ++i) {
        for (const char* name : {"$ORIGIN", "${ORIGIN}"}) {
            const size_t at = dirs[i].find(name);
            if (at != std::string::npos)
                dirs[i].replace(at, std::strlen(name), origin);
        }
    }
    return dirs;
}

// The library the loader takes for `soname`: one of the runtime's of that SONAME (the runtime
// holds it already), else the first file of that name and of the driver's kind on the search
// path.
bool locate(const Context& ctx, const std::string& soname, ElfFile& found) {
    for (size_t i = 0; i < ctx.runtime.size(); ++i) {
        if (ctx.runtime[i].soname == soname) {
            found = ctx.runtime[i];
            return true;
        }
    }
    const std::vector<std::string> dirs = searchPath(ctx.driver);
    for (size_t i = 0; i < dirs.size(); ++i) {
        std::string error;
        if (found.load(dirs[i] + "/" + soname, error) && found.is64 == ctx.driver.is64 &&
            found.machine == ctx.driver.machine)
            return true;
    }
    return false;
}

// GLIBCXX_3.4.9 before GLIBCXX_3.4.21: numbers compared as numbers.
bool versionBefore(const std::string& a, const std::string& b) {
    size_t i = 0, k = 0;
    while (i < a.size() && k < b.size()) {
        if (isdigit(static_cast<unsigned char>(a[i])) &&
            isdigit(static_cast<unsigned char>(b[k]))) {
            char* endA = nullptr;
            char* endB = nullptr;
            const unsigned long x = std::strtoul(a.c_str() + i, &endA, 10);
            const unsigned long y = std::strtoul(b.c_str() + k, &endB, 10);
            if (x != y)
                return x < y;
            i = static_cast<size_t>(endA - a.c_str());
            k = static_cast<size_t>(endB - b.c_str());
        } else if (a[i] != b[k]) {
            return a[i] < b[k];
        } else {
            ++i;
            ++k;
        }
    }
    return a.size() - i < b.size() - k;
}

void checkVersions(Context& ctx) {
    std::vector<std::string> files;
    for (size_t i = 0; i < ctx.driver.versionNeeds.size(); ++i) {
        const std::string& file = ctx.driver.versionNeeds[i].file;
        bool listed = false;
        for (size_t k = 0; k < files.size(); ++k)
            listed = listed || files[k] == file;
        if (!listed)
            files.push_back(file);
    }
    for (size_t k = 0; k < files.size(); ++k) {
        const std::string check = "symbol versions of " + files[k];
        ElfFile lib;
        if (!locate(ctx, files[k], lib)) {
            ctx.loadingFailed = true;
            ctx.report.add(kFail, kArea, check, "not found where the loader looks",
                           "install it, or name the runtime's copy with --runtime");
            continue;
        }
        std::vector<std::string> missing;
        int wanted = 0;
        for (size_t i = 0; i < ctx.driver.versionNeeds.size(); ++i) {
            const ElfVersionNeed& need = ctx.driver.versionNeeds[i];
            if (need.file != files[k])
                continue;
            ++wanted;
            if (!lib.definesVersion(need.version))
                missing.push_back(need.version);
        }
        std::sort(missing.begin(), missing.end(), versionBefore);
        if (missing.empty()) {
            ctx.report.add(kPass, kArea, check,
                           format("%s defines all %d the driver needs", lib.path.c_str(), wanted));
        } else {
            ctx.loadingFailed = true;
            ctx.report.add(kFail, kArea, check,
                           lib.path + " lacks " + join(missing, ", ") + ": the driver cannot load",
                           "use a driver built with this panel's SDK (docs/panel-build.md) or a "
                           "newer library");
        }
    }
}

// 4 for libQtCore.so.4, 5 for libQt5Core.so.5, 0 for anything else.
int qtMajor(const std::string& soname) {
    if (startsWith(soname, "libQtCore.so."))
        return std::atoi(soname.c_str() + 13);
    if (startsWith(soname, "libQt") && soname.size() > 10 && soname.compare(6, 4, "Core") == 0 &&
        soname[5] >= '1' && soname[5] <= '9')
        return soname[5] - '0';
    return 0;
}

void checkQtMajor(Context& ctx) {
    const int wanted = ctx.qtMajor;
    std::string seen;
    for (size_t i = 0; i < ctx.runtime.size(); ++i) {
        std::vector<std::string> names = ctx.runtime[i].needed;
        names.push_back(ctx.runtime[i].soname);
        for (size_t k = 0; k < names.size(); ++k) {
            const int major = qtMajor(names[k]);
            if (major == 0)
                continue;
            seen = names[k] + " (" + ctx.runtime[i].path + ")";
            if (major != wanted) {
                ctx.loadingFailed = true;
                ctx.report.add(kFail, kArea, "QtCore major version",
                               format("the runtime holds Qt %d: ", major) + seen +
                                   format(", the driver is built for Qt %d", wanted),
                               format("install the bundle built for Qt %d (its name says qt%d)",
                                      major, major));
                return;
            }
        }
    }
    if (seen.empty())
        ctx.report.add(kWarn, kArea, "QtCore major version",
                       "no runtime library given is or needs a QtCore",
                       "name the runtime's QtCore with --runtime");
    else
        ctx.report.add(kPass, kArea, "QtCore major version",
                       format("Qt %d, as the driver: ", wanted) + seen);
}

enum Layout { kNoLayout = 0, kOldLayout = 1, kNewLayout = 2 };
const char* const kLayoutNames[] = {"", "old (pre-C++11)", "new (C++11)"};
const char* const kBundleSuffix[] = {"", "oldabi", "newabi"};

// Which std::string a library uses, from the names of the string functions it calls or offers:
// the C++11 layout lives in std::__cxx11, the old one is std::basic_string ("Ss") itself.
int layoutOf(const ElfFile& lib) {
    int layout = kNoLayout;
    for (size_t i = 0; i < lib.symbols.size(); ++i) {
        const std::string& name = lib.symbols[i].name;
        if (name.find("__cxx11") != std::string::npos)
            layout |= kNewLayout;
        else if (startsWith(name, "_ZNSs") || startsWith(name, "_ZNKSs") ||
                 name.find("RKSs") != std::string::npos)
            layout |= kOldLayout;
    }
    return layout;
}

void checkStringLayout(Context& ctx) {
    const int wanted = layoutOf(ctx.driver);
    if (wanted != kOldLayout && wanted != kNewLayout)
        return;  // a driver without std::string in its interface fits either
    std::vector<std::string> same;
    for (size_t i = 0; i < ctx.runtime.size(); ++i) {
        const ElfFile& lib = ctx.runtime[i];
        const int layout = layoutOf(lib);
        if (startsWith(lib.soname, "libstdc++") || (layout != kOldLayout && layout != kNewLayout))
            continue;  // the C++ runtime offers both; mixed or none says nothing
        if (layout != wanted) {
            ctx.loadingFailed = true;
            ctx.report.add(
                kFail, kArea, "std::string layout",
                lib.path + " uses the " + kLayoutNames[layout] + " layout, the driver the " +
                    kLayoutNames[wanted] + " one",
                std::string("install the bundle whose name ends in -") + kBundleSuffix[layout]);
            return;
        }
        same.push_back(lib.path);
    }
    ctx.report.add(kPass, kArea, "std::string layout",
                   same.empty() ? std::string("no runtime library given shows one")
                                : std::string(kLayoutNames[wanted]) + ", as " + join(same, ", "));
}

// A failure to load that an earlier loading FAIL explains is a WARN pointing at that FAIL.
void loadFailure(Context& ctx, const std::string& check, const std::string& found,
                 const std::string& fix) {
    if (ctx.loadingFailed)
        ctx.report.add(kWarn, kArea, check, found, "follows from the loading FAIL above");
    else
        ctx.report.add(kFail, kArea, check, found, fix);
}

struct Loadable {
    const std::vector<std::string>* preloads;
    std::string path;
};

// The HAL's interface record (60 bytes): name, then address and mask among seven words.
struct HalRecord {
    char name[32];
    uint32_t word0, addr, word2, mask, word4[3];
};

std::string dotted(uint32_t networkOrder) {
    const unsigned char* b = reinterpret_cast<const unsigned char*>(&networkOrder);
    return format("%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
}

// In the child: the runtime's libraries, the HAL, its functions, then only the calls that read
// (the interface count, each interface by index and by name).
void halWork(int fd, void* context) {
    const Loadable& hal = *static_cast<Loadable*>(context);
    for (size_t i = 0; i < hal.preloads->size(); ++i) {
        if (!dlopen((*hal.preloads)[i].c_str(), RTLD_NOW | RTLD_GLOBAL)) {
            say(fd, std::string("error\t") + dlerror());
            return;
        }
    }
    void* lib = dlopen(hal.path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!lib) {
        say(fd, std::string("error\t") + dlerror());
        return;
    }
    for (const char* name : kHalFunctions)
        if (!dlsym(lib, name))
            say(fd, std::string("missing\t") + name);
    typedef int (*Count)(unsigned*);
    typedef int (*ByIndex)(unsigned, HalRecord*);
    typedef int (*ByName)(const char*, HalRecord*);
    Count count = reinterpret_cast<Count>(dlsym(lib, kHalFunctions[0]));
    ByIndex byIndex = reinterpret_cast<ByIndex>(dlsym(lib, kHalFunctions[1]));
    ByName byName = reinterpret_cast<ByName>(dlsym(lib, kHalFunctions[2]));
    if (!count || !byIndex || !byName)
        return;
    unsigned n = 0;
    const int result = count(&n);
    say(fd, format("count\t%d\t%u", result, n));
    for (unsigned i = 0; result == 0 && i < n && i < 8; ++i) {
        HalRecord record, again;
        std::memset(&record, 0, sizeof record);
        std::memset(&again, 0, sizeof again);
        const int got = byIndex(i, &record);
        record.name[sizeof record.name - 1] = '\0';
        const int named = got == 0 ? byName(record.name, &again) : -1;
        say(fd, format("iface\t%d\t%d\t%s\t%s\t%s", got, named, record.name,
                       dotted(record.addr).c_str(), dotted(record.mask).c_str()));
    }
}

void checkHal(Context& ctx) {
    std::string soname;
    for (size_t i = 0; i < ctx.driver.needed.size(); ++i)
        if (ctx.driver.needed[i].find("wexa-hal") != std::string::npos)
            soname = ctx.driver.needed[i];
    const std::string check = "HAL " + (soname.empty() ? std::string("libwexa-hal.so") : soname);
    ElfFile lib;
    if (soname.empty() || !locate(ctx, soname, lib)) {
        ctx.report.add(kFail, kArea, check, "not found where the loader looks",
                       "install the panel's HAL, or name it with --runtime");
        return;
    }
    Loadable hal = {&ctx.options.runtime, lib.path};
    const ChildResult child = runForked(halWork, &hal, kHalTimeoutMs);
    std::vector<std::string> missing;
    std::string error;
    size_t start = 0;
    for (size_t end; (end = child.output.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line(child.output, start, end - start);
        if (startsWith(line, "missing\t"))
            missing.push_back(std::string(line, 8));
        else if (startsWith(line, "error\t"))
            error = std::string(line, 6);
        else
            ctx.halLines.push_back(line);
    }
    if (!error.empty()) {
        loadFailure(ctx, check, lib.path + " does not load: " + error,
                    "install a HAL that loads with the runtime's libraries");
    } else if (!missing.empty()) {
        ctx.report.add(kFail, kArea, check, lib.path + " lacks " + join(missing, ", "),
                       "install the panel's own HAL: the driver does not load without these");
    } else if (!child.exited || child.status != 0) {
        ctx.report.add(kFail, kArea, check, lib.path + " reading the interfaces: " + child.how(),
                       "the HAL itself is broken; ask the panel's vendor");
    } else {
        ctx.report.add(kPass, kArea, check, lib.path + " has the six functions the driver calls");
    }
}

void report(bool ok, const std::string& what, void* context) {
    if (!ok)
        say(*static_cast<int*>(context), "fail\t" + what);
}

void driverWork(int fd, void* context) {
    const Loadable& driver = *static_cast<Loadable*>(context);
    std::string error;
    void* lib = abi_probe::loadDriver(*driver.preloads, driver.path.c_str(), error);
    if (!lib) {
        say(fd, "error\t" + error);
        return;
    }
    say(fd, "loaded");
    abi_probe::probe(lib, report, &fd);
    say(fd, "done");
}

void checkDriverLoads(Context& ctx) {
    const std::string check = "driver loads as the runtime loads it";
    Loadable driver = {&ctx.options.runtime, ctx.driver.path};
    const ChildResult child = runForked(driverWork, &driver, kDriverTimeoutMs);
    const std::string& out = child.output;
    const size_t error = out.find("error\t");
    const size_t fail = out.find("fail\t");
    if (error != std::string::npos) {
        loadFailure(ctx, check, std::string(out, error + 6, out.find('\n', error) - error - 6),
                    "install the libraries it names, or the bundle built for this runtime");
    } else if (fail != std::string::npos) {
        ctx.report.add(kFail, kArea, check,
                       "loads, but a call lands wrong: " +
                           std::string(out, fail + 5, out.find('\n', fail) - fail - 5),
                       "the runtime lays out its interface otherwise: use its matching bundle");
    } else if (out.find("done\n") == std::string::npos) {
        ctx.report.add(kFail, kArea, check,
                       std::string(out.find("loaded\n") == 0 ? "loaded, then " : "") + child.how(),
                       "run krv-abi-check with the same libraries to see where it stops");
    } else {
        ctx.report.add(kPass, kArea, check,
                       "entry points, slots and device record as the runtime expects them");
    }
}

}  // namespace

void checkLoading(Context& ctx) {
    std::string error;
    ctx.driverRead = ctx.driver.load(ctx.options.driver, error);
    if (!ctx.driverRead) {
        ctx.report.add(kFail, kArea, "driver " + ctx.options.driver, "cannot be read: " + error,
                       "name the bundle's lib/libkrvcontrol_armv5.so.1 with --driver");
        return;
    }
    for (size_t i = 0; i < ctx.options.runtime.size(); ++i) {
        ElfFile lib;
        if (lib.load(ctx.options.runtime[i], error))
            ctx.runtime.push_back(lib);
        else
            ctx.report.add(kFail, kArea, "runtime library " + ctx.options.runtime[i],
                           "cannot be read: " + error, "name the files the runtime loads");
    }
    for (size_t i = 0; i < ctx.driver.needed.size() && !ctx.qtMajor; ++i)
        ctx.qtMajor = qtMajor(ctx.driver.needed[i]);
    checkVersions(ctx);
    if (ctx.options.runtime.empty()) {
        ctx.report.add(kWarn, kArea, "runtime libraries", "none given",
                       "name the runtime's libraries (QtCore among them) with --runtime, so "
                       "that QtCore and the std::string layout are compared and the driver "
                       "loaded as the runtime loads it");
    } else {
        checkQtMajor(ctx);
        checkStringLayout(ctx);
    }
    checkHal(ctx);
    checkDriverLoads(ctx);
}

}  // namespace panel_check
