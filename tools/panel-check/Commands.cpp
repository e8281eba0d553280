// Commands the driver runs, found on this PATH (run the check from the runtime's environment):
// sh, ping with -c and -W, date with the form the driver sets the clock with, dmesg, rm. Each is
// tried only in a way that changes nothing: ping and date are asked, never sent or set.
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "Checks.h"
#include "Child.h"

namespace panel_check {

namespace {

const char kArea[] = "commands";
const int kCommandTimeoutMs = 10000;

bool notOnPath(Context& ctx, const std::string& name, const std::string& program,
               const std::string& effect) {
    if (!program.empty())
        return false;
    ctx.report.add(kFail, kArea, name, "not on PATH (" + searchPath() + "): " + effect,
                   "install " + name + " where the runtime's PATH reaches it");
    return true;
}

void checkShell(Context& ctx) {
    const std::string sh = findOnPath("sh");
    if (::access("/bin/sh", X_OK) != 0)
        ctx.report.add(kFail, kArea, "sh",
                       "no /bin/sh: the clock is never set and ReadSysLog gives -3",
                       "install a shell as /bin/sh");
    else if (!notOnPath(ctx, "sh", sh, "the reachability probe cannot start, NTP always fails"))
        ctx.report.add(kPass, kArea, "sh", "/bin/sh, and " + sh + " on PATH");
}

void checkPing(Context& ctx) {
    const std::string ping = findOnPath("ping");
    if (notOnPath(ctx, "ping", ping, "every NTP synchronisation fails its reachability probe"))
        return;
    // Its usage text lists the options; asking for it sends nothing.
    const ChildResult help =
        runProgram(ping, std::vector<std::string>{"ping", "-h"}, kCommandTimeoutMs);
    const bool count = help.output.find("-c") != std::string::npos;
    const bool wait = help.output.find("-W") != std::string::npos;
    if (count && wait)
        ctx.report.add(kPass, kArea, "ping", ping + " knows -c and -W");
    else if (help.output.find("-") == std::string::npos)
        ctx.report.add(kWarn, kArea, "ping", ping + " shows no usage text to tell -c and -W by",
                       "run krv-panel-check --network to try the probe itself");
    else
        ctx.report.add(kFail, kArea, "ping",
                       ping + " does not list " +
                           (count  ? "-W"
                            : wait ? "-c"
                                   : "-c and -W") +
                           ": the probe \"ping -c 1 -W 2\" fails, and NTP with it",
                       "install a ping that takes -c and -W (iputils or BusyBox)");
}

void checkDate(Context& ctx) {
    const std::string date = findOnPath("date");
    if (notOnPath(ctx, "date", date, "NTP never sets the system clock"))
        return;
    // The driver's form "Y-M-D h:m:s" without leading zeros, parsed (-d), never set.
    struct timeval now;
    gettimeofday(&now, nullptr);
    const time_t seconds = now.tv_sec;
    struct tm local;
    localtime_r(&seconds, &local);
    const std::string form = format("%d-%d-%d %d:%d:%d", local.tm_year + 1900, local.tm_mon + 1,
                                    local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    const ChildResult parsed =
        runProgram(date, std::vector<std::string>{"date", "-d", form}, kCommandTimeoutMs);
    if (parsed.exited && parsed.status == 0) {
        ctx.report.add(kPass, kArea, "date", date + " accepts \"" + form + "\"");
        return;
    }
    const ChildResult padded = runProgram(
        date, std::vector<std::string>{"date", "-d", "2000-01-01 00:00:00"}, kCommandTimeoutMs);
    if (padded.exited && padded.status == 0)
        ctx.report.add(
            kFail, kArea, "date",
            date + " rejects the driver's form \"" + form + "\": NTP never sets the system clock",
            "install a date that takes \"date -s 'Y-M-D h:m:s'\" without leading zeros");
    else
        ctx.report.add(kWarn, kArea, "date",
                       date +
                           " cannot parse a time without setting the clock (-d), so the "
                           "driver's form was not tried",
                       "check by hand that date -s \"" + form + "\" works");
}

void checkDmesg(Context& ctx) {
    const std::string dmesg = findOnPath("dmesg");
    if (notOnPath(ctx, "dmesg", dmesg, "ReadSysLog gives -3"))
        return;
    const ChildResult run = runProgram(dmesg, std::vector<std::string>{"dmesg"}, kCommandTimeoutMs);
    if (run.exited && run.status == 0)
        ctx.report.add(kPass, kArea, "dmesg", dmesg + " reads the kernel log");
    else
        ctx.report.add(kFail, kArea, "dmesg",
                       dmesg + " fails (" + run.how() + "): ReadSysLog gives -3",
                       "let the runtime's user read the kernel log (kernel.dmesg_restrict=0 or "
                       "run the runtime as root)");
}

void checkRm(Context& ctx) {
    const std::string rm = findOnPath("rm");
    if (rm.empty())
        ctx.report.add(kWarn, kArea, "rm", "not on PATH (" + searchPath() + ")",
                       "this driver removes its files itself; other parts of the runtime may "
                       "not, install rm");
    else
        ctx.report.add(kPass, kArea, "rm", rm);
}

}  // namespace

void checkCommands(Context& ctx) {
    checkShell(ctx);
    checkPing(ctx);
    checkDate(ctx);
    checkDmesg(ctx);
    checkRm(ctx);
}

}  // namespace panel_check
