// Reachability probes, the resolver's name servers, and host name resolution.
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <stdio.h>
#include <unistd.h>

#include <mutex>
#include <string>
#include <vector>

#include <QProcess>
#include <QRegExp>
#include <QStringList>

#include "CommonTools.h"
#include "File.h"
#include "NtpCtrl.h"
#include "Text.h"

namespace KRVCTRL {
namespace {
const char dnsFileLockPath[] = "/tmp/dns_access_lock.lck";
const char dnsFilePath[] = "/etc/resolv.conf";
const char dnsFilePathTmp[] = "/etc/resolv.conf.tmp";
}  // namespace
}  // namespace KRVCTRL

namespace {

// A public resolver (223.5.5.5) answers ping from any network the panel is put on.
const char testPingIpAddr[] = "223.5.5.5";
const char pingScriptPath[] = "/tmp/ping.sh";
const int pingWaitMs = 3000;

const char ipRegExpStr[] =
    "^(\\d{1,2}|1\\d\\d|2[0-4]\\d|25[0-5])\\."
    "(\\d{1,2}|1\\d\\d|2[0-4]\\d|25[0-5])\\."
    "(\\d{1,2}|1\\d\\d|2[0-4]\\d|25[0-5])\\."
    "(\\d{1,2}|1\\d\\d|2[0-4]\\d|25[0-5])$";

const char nameServerWord[] = "nameserver";
const size_t nameServerValueStart = 11;  // the word and one separator
const int nameServerAttempts = 4;
const useconds_t nameServerRetryUs = 100 * 1000;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// One reading of the resolver file; false when a line breaks the rules.
bool parseNameServers(const std::string& text, std::vector<std::string>& servers) {
    std::vector<std::string> lines;
    SplitCsvStr(text, '\n', lines);
    for (const std::string& line : lines) {
        size_t word = line.find(nameServerWord);
        if (word == std::string::npos)
            continue;
        size_t valueStart = word + nameServerValueStart;
        size_t hash = line.find('#');
        if (hash != std::string::npos && hash <= valueStart)
            continue;  // commented out
        if (hash == std::string::npos && valueStart >= line.size())
            return false;
        // The word must begin the line and be followed by exactly one blank.
        if (line.size() <= 10 || line[10] != ' ')
            return false;
        servers.push_back(ZU::utils::String::trim(KRVCTRL::slice(line, valueStart)));
    }
    for (const std::string& server : servers)
        if (!NtpCtrl::isNameServerAddress(server))
            return false;
    return true;
}

// Writes all of `bytes` to a fresh "/tmp/ping.sh"; false when any byte is missing.
bool writeScript(const QByteArray& bytes) {
    // /tmp is writable by everyone and the script runs as the driver's user. Truncating a file
    // found at the name would run whatever its creator writes into it between our write and
    // the shell's read, and a planted link would redirect the write. So the old name goes and
    // the script is a new file, created exclusively, never through a link, writable by its
    // owner only. A name planted in between makes the probe fail instead.
    ::unlink(pingScriptPath);
    int fd = ::open(pingScriptPath, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0700);
    if (fd < 0)
        return false;
    const char* data = bytes.constData();
    ssize_t left = bytes.size();
    while (left > 0) {
        ssize_t written = ::write(fd, data, static_cast<size_t>(left));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        data += written;
        left -= written;
    }
    ::close(fd);
    return left == 0;
}

}  // namespace

// Exactly what the ECMAScript pattern
//   ^(((\d{1,2})|(1\d{2})|(2[0-4]\d)|(25[0-5]))\.){3}((\d{1,2})|(1\d{2})|(2[0-4]\d)|(25[0-5]))$
// matches: four numbers joined by dots, each of one or two digits (a leading zero allowed) or of
// three digits from 100 to 255. Written out rather than given to <regex>, whose error type needs
// GCC 5's C++ runtime (2015), which the oldest panels lack.
bool NtpCtrl::isNameServerAddress(const std::string& text) {
    std::string::size_type at = 0;
    for (int number = 0; number < 4; ++number) {
        if (number > 0) {
            if (at >= text.size() || text[at] != '.')
                return false;
            ++at;
        }
        std::string::size_type digits = 0;
        int value = 0;
        while (at + digits < text.size() && isDigit(text[at + digits]) && digits < 4) {
            value = value * 10 + (text[at + digits] - '0');
            ++digits;
        }
        if (digits == 0 || digits > 3 || (digits == 3 && (value < 100 || value > 255)))
            return false;
        at += digits;
    }
    return at == text.size();
}

bool NtpCtrl::isIp(QString const& text) {
    QRegExp pattern(QString::fromLatin1(ipRegExpStr), Qt::CaseSensitive);
    return pattern.exactMatch(text);
}

std::vector<std::string> NtpCtrl::readNameServers() {
    std::vector<std::string> servers;
    KRVCTRL::FileLock lock;
    if (!lock.file().open(KRVCTRL::dnsFileLockPath, O_CREAT))
        return servers;
    KRVCTRL::FileLocker locker(lock);

    // A rewrite interrupted before its rename leaves only the temporary file.
    if (!KRVCTRL::File::is_file_exist(KRVCTRL::dnsFilePath) &&
        KRVCTRL::File::is_file_exist(KRVCTRL::dnsFilePathTmp)) {
        ::rename(KRVCTRL::dnsFilePathTmp, KRVCTRL::dnsFilePath);
        ::sync();
    }

    for (int attempt = 0; attempt < nameServerAttempts; ++attempt) {
        KRVCTRL::File file;
        if (!file.open(KRVCTRL::dnsFilePath, O_RDONLY))
            break;
        servers.clear();
        if (parseNameServers(file.readAll(), servers))
            return servers;
        servers.clear();
        usleep(nameServerRetryUs);
    }
    servers.clear();
    return servers;
}

bool NtpCtrl::pingNetWork(bool serversAreAddresses) {
    QString target = QString::fromLatin1(testPingIpAddr);
    if (!serversAreAddresses) {
        std::vector<std::string> servers = readNameServers();
        if (servers.empty())
            return false;
        target = QString::fromUtf8(servers.front().c_str());
    }

    QString script = QString::fromLatin1(
                         "#!/bin/sh \n"
                         "ping -c 1 -W 2 %1 > /dev/null 2>&1 \n"
                         "if [ $? -eq 0 ];then \n"
                         "exit 0 \n"
                         "else \n"
                         "exit 1 \n"
                         "fi \n")
                         .arg(target);
    // The worker and an ExecNTP command share the script's name: one probe at a time, or one
    // would run, or remove, the other's script.
    static std::mutex probeMutex;
    std::lock_guard<std::mutex> hold(probeMutex);
    if (!writeScript(script.toUtf8()))
        return false;

    QProcess probe;
    probe.start(QString::fromLatin1("sh"), QStringList() << QString::fromLatin1(pingScriptPath),
                QIODevice::ReadWrite);
    if (!probe.waitForFinished(pingWaitMs))
        return false;  // the child dies with `probe`
    return probe.exitCode() == 0;
}

struct hostent* NtpCtrl::getHostByName(const std::vector<QString>& servers) {
    if (servers.empty() || !m_running)
        return nullptr;
    for (const QString& server : servers) {
        struct hostent* host = gethostbyname(server.toUtf8().constData());
        if (host != nullptr)
            return host;
        if (!m_running)
            return nullptr;
    }
    return nullptr;
}
