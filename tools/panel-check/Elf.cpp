#include "Elf.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace panel_check {

namespace {

// Section types and dynamic tags this reader uses (elf.h names).
const unsigned kShtDynamic = 6, kShtDynsym = 11;
const unsigned kShtVerdef = 0x6ffffffd, kShtVerneed = 0x6ffffffe;
const unsigned kDtNeeded = 1, kDtSoname = 14, kDtRpath = 15, kDtRunpath = 29;
const unsigned kVerFlagBase = 1;
// Larger than any library a panel holds; a bigger file is not read whole.
const off_t kMaxFileBytes = 256L << 20;

// Bounds-checked reads of the file image in its own byte order; out-of-range reads give 0 and
// mark the image broken, so a damaged file yields an error instead of a crash.
class Image {
public:
    std::string bytes;
    bool big = false, wide = false, broken = false;

    unsigned long long word(size_t at, size_t size) {
        if (at > bytes.size() || size > bytes.size() - at) {
            broken = true;
            return 0;
        }
        unsigned long long value = 0;
        for (size_t i = 0; i < size; ++i) {
            const unsigned char byte =
                static_cast<unsigned char>(bytes[at + (big ? i : size - 1 - i)]);
            value = (value << 8) | byte;
        }
        return value;
    }
    unsigned long long u16(size_t at) { return word(at, 2); }
    unsigned long long u32(size_t at) { return word(at, 4); }
    // A field that is 4 bytes wide in ELF32 and 8 in ELF64.
    unsigned long long addr(size_t at) { return word(at, wide ? 8 : 4); }

    // The zero-terminated text at `offset` in the string table at [table, table + size).
    std::string text(size_t table, size_t size, size_t offset) {
        if (offset >= size || table > bytes.size() || size > bytes.size() - table) {
            broken = true;
            return std::string();
        }
        const char* start = bytes.data() + table + offset;
        const void* end = std::memchr(start, '\0', size - offset);
        return end ? std::string(start, static_cast<const char*>(end) - start)
                   : std::string(start, size - offset);
    }
};

struct Section {
    unsigned long long type, offset, size, link, entsize;
};

bool readWhole(const std::string& path, std::string& bytes, std::string& error) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (fd < 0 || ::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxFileBytes) {
        error = fd < 0 ? std::string(std::strerror(errno)) : "not a regular file of a usable size";
        if (fd >= 0)
            ::close(fd);
        return false;
    }
    bytes.resize(static_cast<size_t>(st.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::read(fd, &bytes[done], bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    ::close(fd);
    if (done != bytes.size()) {
        error = "read error";
        return false;
    }
    return true;
}

void splitPath(const std::string& list, std::vector<std::string>& into) {
    size_t start = 0;
    for (;;) {
        const size_t colon = list.find(':', start);
        const size_t end = colon == std::string::npos ? list.size() : colon;
        if (end > start)
            into.push_back(std::string(list.begin() + start, list.begin() + end));
        if (colon == std::string::npos)
            return;
        start = colon + 1;
    }
}

}  // namespace

bool ElfFile::load(const std::string& file, std::string& error) {
    *this = ElfFile();
    path = file;
    Image elf;
    if (!readWhole(file, elf.bytes, error))
        return false;
    if (elf.bytes.size() < 52 || elf.bytes.compare(0, 4,
                                                   "\x7f"
                                                   "ELF") != 0) {
        error = "not an ELF file";
        return false;
    }
    elf.wide = elf.bytes[4] == 2;
    elf.big = elf.bytes[5] == 2;
    is64 = elf.wide;
    machine = static_cast<unsigned>(elf.u16(18));
    const unsigned long long shoff = elf.addr(elf.wide ? 40 : 32);
    const unsigned long long shentsize = elf.u16(elf.wide ? 58 : 46);
    const unsigned long long shnum = elf.u16(elf.wide ? 60 : 48);
    if (shnum == 0 || shentsize < (elf.wide ? 64u : 40u)) {
        error = "no section headers";
        return false;
    }

    std::vector<Section> sections;
    for (unsigned long long i = 0; i < shnum; ++i) {
        const size_t at = static_cast<size_t>(shoff + i * shentsize);
        Section s;
        s.type = elf.u32(at + 4);
        s.offset = elf.addr(at + (elf.wide ? 24 : 16));
        s.size = elf.addr(at + (elf.wide ? 32 : 20));
        s.link = elf.u32(at + (elf.wide ? 40 : 24));
        s.entsize = elf.addr(at + (elf.wide ? 56 : 36));
        sections.push_back(s);
    }
    // The string table a section names by its link.
    auto strings = [&](const Section& s, unsigned long long offset) {
        if (s.link >= sections.size()) {
            elf.broken = true;
            return std::string();
        }
        const Section& table = sections[static_cast<size_t>(s.link)];
        return elf.text(static_cast<size_t>(table.offset), static_cast<size_t>(table.size),
                        static_cast<size_t>(offset));
    };

    for (size_t k = 0; k < sections.size() && !elf.broken; ++k) {
        const Section& s = sections[k];
        if (s.type == kShtDynamic) {
            const size_t step = elf.wide ? 16 : 8;
            for (size_t at = 0; at + step <= s.size; at += step) {
                const unsigned long long tag = elf.addr(static_cast<size_t>(s.offset) + at);
                const unsigned long long value =
                    elf.addr(static_cast<size_t>(s.offset) + at + step / 2);
                if (tag == 0)
                    break;
                if (tag == kDtNeeded)
                    needed.push_back(strings(s, value));
                else if (tag == kDtSoname)
                    soname = strings(s, value);
                else if (tag == kDtRpath)
                    splitPath(strings(s, value), rpath);
                else if (tag == kDtRunpath)
                    splitPath(strings(s, value), runpath);
            }
        } else if (s.type == kShtDynsym && s.entsize != 0) {
            for (unsigned long long i = 1; i < s.size / s.entsize; ++i) {
                const size_t at = static_cast<size_t>(s.offset + i * s.entsize);
                ElfSymbol symbol;
                symbol.name = strings(s, elf.u32(at));
                symbol.defined = elf.u16(at + (elf.wide ? 6 : 14)) != 0;
                symbols.push_back(symbol);
            }
        } else if (s.type == kShtVerdef) {
            size_t at = static_cast<size_t>(s.offset);
            for (int guard = 0; guard < 4096 && !elf.broken; ++guard) {
                const unsigned long long flags = elf.u16(at + 2);
                const unsigned long long aux = elf.u32(at + 12);
                const unsigned long long next = elf.u32(at + 16);
                if (!(flags & kVerFlagBase))
                    versions.push_back(strings(s, elf.u32(at + static_cast<size_t>(aux))));
                if (next == 0)
                    break;
                at += static_cast<size_t>(next);
            }
        } else if (s.type == kShtVerneed) {
            size_t at = static_cast<size_t>(s.offset);
            for (int guard = 0; guard < 4096 && !elf.broken; ++guard) {
                const unsigned long long count = elf.u16(at + 2);
                const std::string from = strings(s, elf.u32(at + 4));
                size_t aux = at + static_cast<size_t>(elf.u32(at + 8));
                for (unsigned long long j = 0; j < count && !elf.broken; ++j) {
                    ElfVersionNeed need;
                    need.file = from;
                    need.version = strings(s, elf.u32(aux + 8));
                    versionNeeds.push_back(need);
                    aux += static_cast<size_t>(elf.u32(aux + 12));
                }
                const unsigned long long next = elf.u32(at + 12);
                if (next == 0)
                    break;
                at += static_cast<size_t>(next);
            }
        }
    }
    if (elf.broken) {
        error = "damaged ELF file";
        return false;
    }
    return true;
}

bool ElfFile::definesVersion(const std::string& version) const {
    for (size_t i = 0; i < versions.size(); ++i)
        if (versions[i] == version)
            return true;
    return false;
}

}  // namespace panel_check
