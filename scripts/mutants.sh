#!/bin/bash
# scripts/mutants.sh [-d DIR] [-n] [-q QT4_PREFIX] [NAME...]
#
# Mutation testing of the driver. Each mutant below is one realistic fault (a wrong constant, a
# dropped term, a swapped offset, a missing call, an inverted test), written as
#   name @@ file under device/krv_ctrl (or a path from there) @@ text to find @@ text to put in its place
# with ¶ standing for a line break. The text to find must occur exactly once in its file, so a
# mutant still applies after unrelated edits; one that does not is reported as stale. A fault that
# only another build shows (a symbol the panel SDK's libstdc++ lacks, say) is judged by a command
# instead of the suite, written after a further " @@ ": a shell command run from the copied tree
# with MUTANTS_DIR set to DIR; the mutant is killed when the command fails.
#
# The tree is copied to DIR (default /tmp/krv-mutants, never inside the tree) and built there
# once; then each mutant (or only those named) is applied alone, rebuilt incrementally and run
# against the whole suite, stopping at the first failing test. Killed: a test failed or hung.
# Survived: the suite passed. Broken: the mutant does not build (fix the mutant). The summary
# gives the score; the exit status is 0 only when every mutant run was killed.
# -n only checks that every mutant applies. -q builds against the QtCore 4.8 at QT4_PREFIX (the
# panel's Qt); mutants named qt4-*, whose fault only Qt 4 shows, run only then. Too slow for CI:
# about a minute per mutant.
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
dir=/tmp/krv-mutants
dry=
qt4=
while [ $# -gt 0 ]; do
    case "$1" in
    -d) dir=$2; shift 2 ;;
    -n) dry=1; shift ;;
    -q) qt4=$2; shift 2 ;;
    *) break ;;
    esac
done
case "$(realpath -m "$dir")/" in "$top"/*) echo "mutants.sh: DIR must lie outside the tree" >&2; exit 2 ;; esac

mutants() {
    sed -n '/^__MUTANTS__$/,$p' "$0" | sed '1d; /^#/d; /^$/d'
}

# apply FILE FIND PUT: exit status 3 when FIND does not occur exactly once.
apply() {
    python3 - "$@" <<'PY'
import sys
path, find, put = sys.argv[1], sys.argv[2].replace('¶', '\n'), sys.argv[3].replace('¶', '\n')
text = open(path, encoding='utf-8').read()
if text.count(find) != 1:
    sys.exit(3)
open(path, 'w', encoding='utf-8').write(text.replace(find, put))
PY
}

src=$dir/src
build=$dir/build
logs=$dir/logs
rm -rf "$src" "$logs"
mkdir -p "$src" "$logs"
# tar keeps modification times, so the build directory of an earlier run stays incremental; the
# files that mutants change are made newer, since an earlier run may have left their objects built
# from a mutant.
(cd "$top" && git ls-files -co --exclude-standard -z | tar --null --ignore-failed-read -T - -cf -) |
    tar -xf - -C "$src"
mutants | sed 's/^[^@]*@@ \([^ ]*\) @@.*/\1/' | sort -u | (cd "$src/device/krv_ctrl" && xargs touch)

if [ -z "$dry" ]; then
    echo "== building the unmutated copy in $build"
    cmake -S "$src" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKRV_TEST_TIMEOUT=120 \
        -DKRV_QT4_DIR="$qt4" >/dev/null &&
        cmake --build "$build" -j2 >"$logs/baseline.log" 2>&1 &&
        ctest --test-dir "$build" -j2 >>"$logs/baseline.log" 2>&1 ||
        { echo "mutants.sh: the unmutated tree does not build or pass, see $logs/baseline.log" >&2; exit 1; }
fi

killed=0 survived= stale= broken= total=0
while IFS= read -r line; do
    name=${line%% @@ *} rest=${line#* @@ }
    file=$src/device/krv_ctrl/${rest%% @@ *} rest=${rest#* @@ }
    find=${rest%% @@ *} put=${rest#* @@ } judge=
    case $put in *" @@ "*) judge=${put#* @@ } put=${put%% @@ *} ;; esac
    if [ $# -gt 0 ] && ! printf '%s\n' "$@" | grep -qxF "$name"; then
        continue
    fi
    if [ -z "$qt4$dry" ] && [ "${name#qt4-}" != "$name" ]; then
        printf '%-26s not run: Qt 4 only (-q)\n' "$name"
        continue
    fi
    cp "$file" "$dir/original"
    if ! apply "$file" "$find" "$put"; then
        stale="$stale $name"
        printf '%-26s stale\n' "$name"
        continue
    fi
    if [ -n "$dry" ]; then
        cp "$dir/original" "$file"
        continue
    fi
    total=$((total + 1))
    if ! cmake --build "$build" -j2 >"$logs/$name.build" 2>&1; then
        broken="$broken $name"
        result=broken
    elif [ -n "$judge" ]; then
        if (cd "$src" && MUTANTS_DIR=$dir sh -c "$judge") >"$logs/$name.test" 2>&1; then
            survived="$survived $name"
            result=SURVIVED
        else
            killed=$((killed + 1))
            result="killed by its command ($(grep -m 1 '^FAIL' "$logs/$name.test" || echo failed))"
        fi
    elif ctest --test-dir "$build" -j2 --stop-on-failure >"$logs/$name.test" 2>&1; then
        survived="$survived $name"
        result=SURVIVED
    else
        killed=$((killed + 1))
        result="killed by $(sed 's/^[0-9]*://' "$build/Testing/Temporary/LastTestsFailed.log" | tr '\n' ' ')"
    fi
    printf '%-26s %s\n' "$name" "$result"
    # A fresh modification time makes the next build compile the original again.
    cp "$dir/original" "$file"
done < <(mutants)

[ -n "$dry" ] && { [ -z "$stale" ] && echo "every mutant applies"; [ -z "$stale" ]; exit; }
echo "score: $killed/$total killed${survived:+; survived:$survived}${broken:+; broken:$broken}${stale:+; stale:$stale}"
[ "$killed" = "$total" ] && [ -z "$stale" ]
exit

# Equivalent mutants, not run (no behaviour can tell them apart):
# - T2 and T3 read from each other's offsets: the offset uses only their sum.
# - "all four are addresses" resolving the full list: with four addresses it is the address list.
# - "none is an address" resolving the full list: the entries left out are empty, and an empty
#   name never resolves, so the first entry that resolves is the same.
# - the buzzer switch ignoring the text "false": that text is no number, so its value is 0 anyway.
# - the period comparison "now - start >= period" as ">": one millisecond apart on a tick count.
# - a reply time past 2038 set without the range check: only a 32-bit time_t wraps it, so only the
#   armel legs (scripts/test-armel.sh, test-qt4.sh --armel) catch it, not this host build.
# - the channel number plus one formed in int: the overflow at INT_MAX is undefined behaviour that
#   the sanitizer leg reports (scripts/sanitize.sh asan); an unsanitized build wraps it unseen.
__MUTANTS__
# Driver entry and device object
unsized-arrays-skipped @@ DevCtrl.cpp @@ if (m_nMaxChannel > 0 && m_nMaxChannel == count) @@ if (m_nMaxChannel != 0 && m_nMaxChannel == count)
collect-result-zero @@ DevCtrl.cpp @@     pushChannels();¶    return resultValue(); @@     pushChannels();¶    return 0;
int-push-rounds @@ DevCtrl.cpp @@ SetChannelInt(channel, truncateToInt(m_valueArray[i])) @@ SetChannelInt(channel, truncateToInt(m_valueArray[i] + 0.5))
comm-state-not-inverted @@ DevCtrl.cpp @@ m_data.nCommState = 2; @@ m_data.nCommState = 1;
no-notify-on-command @@ DevCtrl.cpp @@         notifyCommunication();¶        CString command(cmd); @@         CString command(cmd);
no-notify-on-write @@ DevCtrl.cpp @@         notifyCommunication();¶        // The runtime counts channels from 1 @@         // The runtime counts channels from 1
notify-on-null-poll @@ DevCtrl.cpp @@     if (flags == nullptr || count == 0)¶        return 0;¶    notifyCommunication(); @@     notifyCommunication();¶    if (flags == nullptr || count == 0)¶        return 0;
write-double-format @@ DevCtrl.cpp @@ "WEXA_WRITE(%lld=%lf)" @@ "WEXA_WRITE(%lld=%g)"
# Command dispatcher
failed-write-keeps-cache @@ DevIOCtrl.cpp @@         bas->m_refreshDone = 0;¶        return reported(r); @@         if (r == 0)¶            bas->m_refreshDone = 0;¶        return reported(r);
backlightoff-refusal-lost @@ DevIOCtrl.cpp @@ hal_set_lcd_status(1) != 0 @@ hal_set_lcd_status(1) > 0
read-taken-as-reflesh @@ DevIOCtrl.cpp @@ keyword.CompareNoCase(DEV_STR_REFLESH) == 0 @@ keyword.CompareNoCase(DEV_STR_REFLESH) == 0 || keyword.CompareNoCase(DEV_STR_READ) == 0
manager-gets-upper-keyword @@ DevIOCtrl.cpp @@ DevOpear(data, std::string(command.GetString())) @@ DevOpear(data, std::string((keyword + command.Mid(open)).GetString()))
execntp-outcome-leaks @@ DevIOCtrl.cpp @@     if (arguments.IsEmpty())¶        return 0.0; @@     if (arguments.IsEmpty())¶        return reported(e);
setntpserver-extra-items @@ DevIOCtrl.cpp @@ items.size() != kNtpServerCount && items.size() != kNtpServerCount + 1 @@ items.size() < kNtpServerCount
# Channel refresh
vnc-missing-keeps-old @@ DevBasReflesh.cpp @@     CDevBas::setArrayValue(texts, DEV_CHL_VNC_PWD, password); @@     if (exists)¶        CDevBas::setArrayValue(texts, DEV_CHL_VNC_PWD, password);
vnc-refresh-no-fallback @@ DevBasReflesh.cpp @@ const QString path = vncCfgFilePath(exists); @@ const QString path = vncCfgPath;¶    exists = QSettings(path, QSettings::IniFormat).contains("/VNCCONFIG/passwd");
texts-grown-by-refresh @@ DevBasReflesh.cpp @@     if (index >= 0 && index < stringArray.GetSize())¶        stringArray[index] = value; @@     if (index >= 0)¶        stringArray.SetAtGrow(index, value);
backlight-seconds-rounded @@ DevBasReflesh.cpp @@ storedInt(text) / 1000 @@ (storedInt(text) + 500) / 1000
# Write commands and the application configuration store
channel-19-ignored @@ DevBasWrite.cpp @@ channel > DEV_CHL_VNC_PWD @@ channel >= DEV_CHL_VNC_PWD
ntp-channel-via-double @@ DevBasWrite.cpp @@ return ok ? value : 0; @@ return ok ? value : truncatedNumber(text);
refused-value-reported @@ DevBasWrite.cpp @@     if (!hasStatus)¶        return 0; @@     if (!hasStatus)¶        return result;
buzzer-on-keeps-value @@ AppCfgStore.cpp @@ QString::number(value ? kBuzzOnDurationMs : 0) @@ QString::number(value)
buzz-limit @@ AppCfgStore.cpp @@ kMaxBuzzDurationMs = 6500; @@ kMaxBuzzDurationMs = 6501;
backlight-timeout-ms @@ AppCfgStore.cpp @@ QString::number(value * 1000) @@ QString::number(value)
beep-fallback-zero @@ AppCfgStore.cpp @@ kBeepWaitFallbackMs = 30; @@ kBeepWaitFallbackMs = 0;
beep-stored-wait-ignored @@ AppCfgStore.cpp @@ usable ? duration : kBeepWaitFallbackMs @@ usable ? kBeepWaitFallbackMs : kBeepWaitFallbackMs
beep-bound-signed @@ AppCfgStore.cpp @@ wasRead && inRange(duration, 0, kMaxBuzzDurationMs) @@ wasRead && duration <= static_cast<int>(kMaxBuzzDurationMs)
gui-buzzer-order @@ AppCfgStore.cpp @@     __gui_get_buzzing_time(1);¶    __gui_get_buzzing_time(0); @@     __gui_get_buzzing_time(0);¶    __gui_get_buzzing_time(1);
# NTP configuration file and INI helper
ini-read-empty-key @@ ntp/IniOperator.cpp @@ key.isEmpty())¶        return 0; @@ false)¶        return 0;
ini-write-empty-group @@ ntp/IniOperator.cpp @@ group.isEmpty() || key.isEmpty())¶        return -1; @@ key.isEmpty())¶        return -1;
ntp-default-period @@ ntp/ntpCfgParam.cpp @@ "0", "1", "2", "0.pool.ntp.org" @@ "0", "1", "1", "0.pool.ntp.org"
# SNTP exchange
tx-fraction-zero @@ ntp/NtpExec.cpp @@ usecToFraction(static_cast<uint32_t>(now.tv_usec)) @@ usecToFraction(0)
tx-fraction-raw-usec @@ ntp/NtpExec.cpp @@ return 4294u * usec + ((1981u * usec) >> 11); @@ return usec;
tx-fraction-swapped @@ ntp/NtpExec.cpp @@ putWord(packet, 44, usecToFraction(static_cast<uint32_t>(now.tv_usec))); @@ putWord(packet, 44, htonl(usecToFraction(static_cast<uint32_t>(now.tv_usec))));
rx-fraction-uncorrected @@ ntp/NtpExec.cpp @@ return (fraction >> 12) - 759u * (((fraction >> 10) + 32768u) >> 16); @@ return fraction >> 12;
rx-fraction-unrounded @@ ntp/NtpExec.cpp @@ ((fraction >> 10) + 32768u) >> 16 @@ (fraction >> 10) >> 16
rx-seconds-unwrapped @@ ntp/NtpExec.cpp @@ uint64_t seconds = static_cast<uint32_t>(wordAt(packet, offset) - secondsFrom1900To1970); @@ uint64_t seconds = uint64_t(wordAt(packet, offset)) - secondsFrom1900To1970;
offset-receive-half-only @@ ntp/NtpExec.cpp @@     int64_t t4 = static_cast<int64_t>(arrival.tv_sec) * 1000000 + arrival.tv_usec;¶    int64_t t1 = timestampAt(reply, 24);¶    int64_t t2 = timestampAt(reply, 32);¶    int64_t t3 = timestampAt(reply, 40);¶    int64_t offset = ((t2 - t1) + (t3 - t4)) / 2000000; @@     int64_t t1 = timestampAt(reply, 24);¶    int64_t t2 = timestampAt(reply, 32);¶    int64_t offset = (t2 - t1) / 1000000;
offset-transmit-half-only @@ ntp/NtpExec.cpp @@     int64_t t1 = timestampAt(reply, 24);¶    int64_t t2 = timestampAt(reply, 32);¶    int64_t t3 = timestampAt(reply, 40);¶    int64_t offset = ((t2 - t1) + (t3 - t4)) / 2000000; @@     int64_t t3 = timestampAt(reply, 40);¶    int64_t offset = (t3 - t4) / 1000000;
offset-not-halved @@ ntp/NtpExec.cpp @@ ((t2 - t1) + (t3 - t4)) / 2000000 @@ ((t2 - t1) + (t3 - t4)) / 1000000
t1-t2-swapped @@ ntp/NtpExec.cpp @@ t1 = timestampAt(reply, 24);¶    int64_t t2 = timestampAt(reply, 32); @@ t1 = timestampAt(reply, 32);¶    int64_t t2 = timestampAt(reply, 24);
t1-from-transmit @@ ntp/NtpExec.cpp @@ t1 = timestampAt(reply, 24); @@ t1 = timestampAt(reply, 40);
t4-whole-seconds @@ ntp/NtpExec.cpp @@ * 1000000 + arrival.tv_usec; @@ * 1000000;
reply-wait-short @@ ntp/NtpExec.cpp @@ struct timeval wait = {5, 0}; @@ struct timeval wait = {1, 0};
rtc-failure-ignored @@ ntp/NtpExec.cpp @@ return hal_set_rtc_time(&local) == 0 ? 0 : execFailed; @@ return (hal_set_rtc_time(&local), 0);
send-message-name @@ ntp/NtpExec.cpp @@ "sendPacket", 531 @@ "execNtp", 531
timeout-message-line @@ ntp/NtpExec.cpp @@ "execNtp", 490 @@ "execNtp", 485
switched-off-fails @@ ntp/NtpExec.cpp @@         if (m_ntpSwitch != 1)¶            return 0; @@         if (m_ntpSwitch != 1)¶            return execFailed;
mixed-resolves-addresses @@ ntp/NtpExec.cpp @@             chosen = &all; @@             chosen = &addresses;
mixed-names-fail-full-list @@ ntp/NtpExec.cpp @@         else if (addressesAnswer)¶            chosen = &addresses; @@         else if (addressesAnswer)¶            chosen = &all;
mixed-address-fail-full-list @@ ntp/NtpExec.cpp @@         else if (nameServerAnswers)¶            chosen = &names; @@         else if (nameServerAnswers)¶            chosen = &all;
names-probe-addresses @@ ntp/NtpExec.cpp @@         if (!pingNetWork(false))¶            return execFailed;¶        chosen = &names; @@         if (!pingNetWork(true))¶            return execFailed;¶        chosen = &names;
names-probe-both @@ ntp/NtpExec.cpp @@ classifyServers(all, addresses, names) == 0 @@ classifyServers(all, addresses, names) < 0
any-address-probes-addresses @@ ntp/NtpExec.cpp @@ classifyServers(all, addresses, names) == 4 @@ classifyServers(all, addresses, names) > 0
# NTP worker and controls
period-in-minutes @@ ntp/NtpCtrl.cpp @@ msPerHour = 3600000; @@ msPerHour = 60000;
shorter-period-no-trigger @@ ntp/NtpCtrl.cpp @@ last.m_ntpFreq != current.m_ntpFreq @@ last.m_ntpFreq < current.m_ntpFreq
switch-trigger-on-level @@ ntp/NtpCtrl.cpp @@ last.m_ntpSwitch == 0 && current.m_ntpSwitch == 1 @@ current.m_ntpSwitch == 1
servers-first-compared @@ ntp/NtpCtrl.cpp @@ if (m_ntpServer[i] != servers[i]) @@ if (i == 0 && m_ntpServer[i] != servers[i])
servers-not-written @@ ntp/NtpCtrl.cpp @@             m_ntpServer[i] = servers[i];¶        writeCfg(m_cfgPath); @@             m_ntpServer[i] = servers[i];
period-range @@ ntp/NtpCtrl.cpp @@ static_cast<unsigned>(value) - 1u < 24u @@ static_cast<unsigned>(value) - 1u <= 24u
period-floor-dropped @@ ntp/NtpCtrl.cpp @@ return ntpFreq < 1 ? 1 : ntpFreq; @@ return ntpFreq;
# Reachability and name servers
child-limit-long @@ ntp/NtpNet.cpp @@ pingWaitMs = 3000; @@ pingWaitMs = 30000;
child-limit-short @@ ntp/NtpNet.cpp @@ pingWaitMs = 3000; @@ pingWaitMs = 300;
nameserver-one-attempt @@ ntp/NtpNet.cpp @@ nameServerAttempts = 4; @@ nameServerAttempts = 1;
nameserver-short-pause @@ ntp/NtpNet.cpp @@ nameServerRetryUs = 100 * 1000; @@ nameServerRetryUs = 10 * 1000;
ping-wait-one-second @@ ntp/NtpNet.cpp @@ "ping -c 1 -W 2 %1 @@ "ping -c 1 -W 1 %1
probe-last-nameserver @@ ntp/NtpNet.cpp @@ servers.front().c_str() @@ servers.back().c_str()
nameserver-not-checked @@ ntp/NtpNet.cpp @@ if (!NtpCtrl::isNameServerAddress(server)) @@ if (server.empty())
nameserver-up-to-299 @@ ntp/NtpNet.cpp @@ value > 255 @@ value > 299
nameserver-zero-led-three-digits @@ ntp/NtpNet.cpp @@ (value < 100 || @@ (value < 0 ||
nameserver-four-digits @@ ntp/NtpNet.cpp @@ (digits == 0 || digits > 3 || @@ (digits == 0 ||
nameserver-tail-ignored @@ ntp/NtpNet.cpp @@     return at == text.size(); @@     return true;
# CPU and memory usage
cpu-iowait-idle @@ devliunxsys_cpumem.cpp @@ idle = static_cast<long long>(cpu.m_idle); @@ idle = static_cast<long long>(cpu.m_idle + cpu.m_iowait);
cpu-softirq-left-out @@ devliunxsys_cpumem.cpp @@ cpu.m_irq + cpu.m_softirq; @@ cpu.m_irq;
cpu-steal-added @@ devliunxsys_cpumem.cpp @@ cpu.m_irq + cpu.m_softirq; @@ cpu.m_irq + cpu.m_softirq + (tokens.size() > 9 ? DevCounter(tokens[9]) : 0);
cpu-sum-not-wrapped @@ devliunxsys_cpumem.cpp @@ std::uint32_t sum = cpu.m_user + @@ long long sum = static_cast<long long>(cpu.m_user) +
cpu-range-signed @@ devliunxsys_cpumem.cpp @@ static_cast<unsigned int>(p) > 100u @@ p > 100
mem-mib-rounded @@ devliunxsys_cpumem.cpp @@ static_cast<double>(kib / 1024) @@ static_cast<double>((kib + 512) / 1024)
# Settings files shared with other processes, killed writes and power cuts
settings-change-unrevealed @@ util/SettingsFile.cpp @@             setStep(path, before.step + 1);¶            before.step += 1; @@             before.step += 1;
settings-write-step-kept @@ util/SettingsFile.cpp @@         if (stepOf(st.st_mtim) < later)¶            (void)::futimens(fd, times); @@         (void)times;
settings-only-empty-restored @@ util/SettingsFile.cpp @@ if (now.exists && damaged(now.bytes, left.bytes)) { @@ if (now.exists && now.bytes.empty() && damaged(now.bytes, left.bytes)) {
settings-keys-unchecked @@ util/SettingsFile.cpp @@ for (size_t at = 0, end; at < wanted.size(); @@ for (size_t at = wanted.size(), end; at < wanted.size();
settings-copy-link-followed @@ util/SettingsFile.cpp @@ snapshot(copy, O_NOFOLLOW) @@ snapshot(copy)
qt4-settings-new-file-not-synced @@ util/SettingsFile.cpp @@ if (::fsync(fd) != 0 || ::rename( @@ if (::rename(
settings-owner-not-kept @@ util/SettingsFile.cpp @@ (::fchown(fd, m_before.uid, m_before.gid) != 0 || ::fchmod( @@ (::fchmod(
settings-mode-not-kept @@ util/SettingsFile.cpp @@  || ::fchmod(fd, m_before.mode) != 0)) @@ ))
system-sync-before-settings-sync @@ util/SettingsFile.cpp @@     State s(path);¶    const std::string file = resolved(s.path); @@     State s(path);¶    ::sync();¶    const std::string file = resolved(s.path);
settings-foreign-files-removed @@ util/SettingsFile.cpp @@     const std::string prefix = base + kNewMark;¶    if (std::strncmp(name, prefix.c_str(), prefix.size()) != 0)¶        return false; @@     const std::string prefix = base + ".";¶    if (std::strncmp(name, prefix.c_str(), prefix.size()) == 0)¶        return true;
settings-live-writer-removed @@ util/SettingsFile.cpp @@ return pid == ::getpid() || (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH); @@ return true;
lock-wait-ends-on-signal @@ util/File.cpp @@ while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) { @@ if (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {

# What the driver costs and leaves behind: descriptors, the NTP worker's rhythm
lock-refused-fd-leaked @@ util/File.cpp @@ !S_ISREG(st.st_mode))) {¶        ::close(m_fd);¶ @@ !S_ISREG(st.st_mode))) {¶
lock-file-never-closed @@ util/File.cpp @@ FileLock::~FileLock() {¶    delete m_file;¶} @@ FileLock::~FileLock() {¶}
sntp-socket-left-open @@ ntp/NtpExec.cpp @@         if (m_fd >= 0)¶            close(m_fd); @@         (void)m_fd;
fault-retry-never-cleared @@ ntp/NtpCtrl.cpp @@     retry = false;¶    pause(); @@     pause();
fault-logged-every-pass @@ ntp/NtpCtrl.cpp @@     if (!reported)¶        logger_printf( @@     logger_printf(
fault-no-wait @@ ntp/NtpCtrl.cpp @@ i < retrySleeps && m_running; @@ i < 0 && m_running;
pause-spins @@ ntp/WorkerPause.cpp @@ while (!m_stopped && result == 0) @@ while (!m_stopped && result != 0)
pause-on-wall-clock @@ ntp/WorkerPause.cpp @@ kPauseClock = CLOCK_MONOTONIC; @@ kPauseClock = CLOCK_REALTIME;
sntp-socket-inherited @@ ntp/NtpExec.cpp @@ socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0) @@ socket(AF_INET, SOCK_DGRAM, 0)
files-inherited @@ util/File.cpp @@ flags | O_CLOEXEC, mode); @@ flags, mode);¶    return fd;
retries-without-pause @@ ntp/NtpCtrl.cpp @@ retrySleeps = 5; @@ retrySleeps = 0;
# Durability and order of effects
settings-not-synced @@ util/SettingsFile.cpp @@     // The panel may lose power at any moment.¶    ::sync(); @@     // The panel may lose power at any moment.
resolver-rename-not-synced @@ ntp/NtpNet.cpp @@ dnsFilePath);¶        ::sync(); @@ dnsFilePath);
resolver-synced-before-rename @@ ntp/NtpNet.cpp @@         ::rename(KRVCTRL::dnsFilePathTmp, KRVCTRL::dnsFilePath);¶        ::sync(); @@         ::sync();¶        ::rename(KRVCTRL::dnsFilePathTmp, KRVCTRL::dnsFilePath);
gui-told-before-write @@ AppCfgStore.cpp @@     const int result = write(setting.key, setting.text);¶    // The GUI rereads the file, so it is told only once the lock is free again.¶    setting.notify(); @@     setting.notify();¶    const int result = write(setting.key, setting.text);
# Modes of created files and text encodings
lock-files-owner-only @@ util/File.cpp @@ kCreateMode = 0777; @@ kCreateMode = 0600;
kernel-capture-readable @@ devliunxsys_log.cpp @@ O_NOFOLLOW | O_CLOEXEC, 0600); @@ O_NOFOLLOW | O_CLOEXEC, 0644);
vnc-password-from-utf8 @@ DevBasNet.cpp @@ QString::fromLatin1(password.GetString(), length) @@ QString::fromUtf8(password.GetString(), length)
vnc-file-utf8-codec @@ DevBasNet.cpp @@ {{kVncPwdKey, wanted}}, false) @@ {{kVncPwdKey, wanted}}, true)
ntp-server-channel-from-utf8 @@ DevBasWrite.cpp @@ QString::fromLatin1(valueText.GetString())); @@ QString::fromUtf8(valueText.GetString()));
# The less common channels and codes
ip2-checked-as-mask @@ DevBasNet.cpp @@ {DEV_CHL_IP2, CDevBas::IsAvailableIPAddr, 1, 0}, @@ {DEV_CHL_IP2, CDevBas::IsAvailableMaskAddr, 1, 0},
backlight-switch-unchecked @@ AppCfgStore.cpp @@         case DEV_CHL_BACKLIGHT_SWITCH:¶            if (!inRange(value, 0, 1))¶                return false;¶ @@         case DEV_CHL_BACKLIGHT_SWITCH:¶
ntp-status-failure-positive @@ DevBasWrite.cpp @@ statusName, -result) ? 0 : -4; @@ statusName, -result) ? 0 : 4;
ntpserver-status-failure-positive @@ DevIOCtrl.cpp @@ items[kNtpServerCount], 0))¶        return -kCodeVariable; @@ items[kNtpServerCount], 0))¶        return kCodeVariable;
# What the engineers' docs show (killed by docs_sessions at least)
pwd-command-refreshes @@ DevIOCtrl.cpp @@     if (keyword.CompareNoCase(DEV_MOD_VNC_PWD) == 0)¶        return reported(modVncPwd(data, arguments)); @@     if (keyword.CompareNoCase(DEV_MOD_VNC_PWD) == 0) {¶        if (bas != nullptr)¶            bas->m_refreshDone = 0;¶        return reported(modVncPwd(data, arguments));¶    }
planted-capture-name-bad-value @@ devliunxsys_log.cpp @@     if (capture < 0)¶        return -3; @@     if (capture < 0)¶        return -4;
# The ABI check: the symbol-version ceiling, and waits that follow the monotonic clock
abi-ceiling-compared-as-text @@ ../../scripts/check-abi.sh @@ (!(k in limit) || newer(number(v), limit[k])) @@ (!(k in limit) || number(v) > limit[k])
abi-wall-clock-wait-passes @@ ../../scripts/check-abi.sh @@ [ $wait = pthread_cond_timedwait ] && imports pthread_condattr_setclock; @@ [ $wait = pthread_cond_timedwait ];
pause-clock-never-set @@ ntp/WorkerPause.cpp @@     pthread_condattr_setclock(&attr, kPauseClock);¶ @@ ¶
# A symbol newer than the oldest panels' C++ runtime, seen only by the panel SDK's build
slice-by-substr @@ util/Text.h @@     if (pos >= text.size())¶        return std::string();¶    const std::string::size_type left = text.size() - pos;¶    return std::string(text.data() + pos, count < left ? count : left); @@     return text.substr(pos, count); @@ scripts/test-panel-sdk.sh --driver-only "${KRV_ARMEL_SDK:-/opt/krv-armel-sdk}" "${KRV_QT4_ARMEL:-${KRV_ARMEL_SDK:-/opt/krv-armel-sdk}/qt4}" "$MUTANTS_DIR/panel-sdk"
# krv-panel-check: the driver's rules applied to a panel, one cause giving one FAIL, nothing changed
check-resolver-tab-accepted @@ ../../tools/panel-check/Rules.cpp @@ line.size() <= 10 || line[10] != ' ') { @@ line.size() <= 10 || (line[10] != ' ' && line[10] != '\t')) {
check-resolver-comment-cut @@ ../../tools/panel-check/Rules.cpp @@ trimmed(std::string(line, valueStart)) @@ trimmed(std::string(line, valueStart, hash - valueStart))
check-lock-fifo-opened @@ ../../tools/panel-check/Files.cpp @@     if (kind) { @@     if (kind && !S_ISFIFO(st.st_mode)) {
check-stat-one-blank @@ ../../tools/panel-check/Rules.cpp @@ if (tokens[0] != "cpu" || !tokens[1].empty()) @@ if (tokens[0] != "cpu")
check-versions-any @@ ../../tools/panel-check/Loading.cpp @@ if (!lib.definesVersion(need.version)) @@ if (lib.versions.empty())
check-layout-one-way @@ ../../tools/panel-check/Loading.cpp @@         if (layout != wanted) { @@         if (layout != wanted && layout == kNewLayout) {
check-read-only-unseen @@ ../../tools/panel-check/Files.cpp @@ if (known && (fs.f_flag & ST_RDONLY)) { @@ if (false) {
check-cause-failed-twice @@ ../../tools/panel-check/Loading.cpp @@     if (ctx.loadingFailed)¶        ctx.report.add(kWarn @@     if (false)¶        ctx.report.add(kWarn
check-lock-created @@ ../../tools/panel-check/Files.cpp @@         if (problem.empty())¶            ctx.report.add(kPass, kArea, check, "not there yet @@         if (problem.empty() && ::close(::open(path.c_str(), O_RDONLY | O_CREAT, 0666)) == 0)¶            ctx.report.add(kPass, kArea, check, "not there yet
check-lock-held-unseen @@ ../../tools/panel-check/Files.cpp @@ LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; @@ LOCK_SH | LOCK_NB) != 0 && errno == EINTR;
check-ini-first-key-wins @@ ../../tools/panel-check/Ini.cpp @@         m_values[group.empty() || group == "General" ? name("", key) : name(group, key)] = value; @@         m_values.insert(std::make_pair(group.empty() || group == "General" ? name("", key) : name(group, key), value));
