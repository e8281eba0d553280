#include "OwnerArchive.h"

#include <climits>
#include <cstring>
#include <new>

namespace {

uint16_t littleEndian16(const unsigned char* bytes) {
    return static_cast<uint16_t>(bytes[0] | (bytes[1] << 8));
}

}  // namespace

COwnerArchive::COwnerArchive() : m_nPosition(0), m_mode(ARCHIVE_STORE) {}

COwnerArchive::~COwnerArchive() = default;

void COwnerArchive::SvrChangeMode(ARCHIVESTATUS mode) {
    if (mode != m_mode) {
        m_mode = mode;
        if (m_nPosition != 0)
            m_buffer.SetSize(m_nPosition);
        m_nPosition = 0;
    } else if (m_nPosition != 0) {
        return;
    }
    // At the front of the buffer: a store starts with the version word, a load
    // takes it (or rewinds when the data is older than the version word).
    if (m_mode == ARCHIVE_STORE) {
        SvrWriteWord(VERSION_STORE);
    } else {
        readVersion();
    }
}

void COwnerArchive::readVersion() {
    if (SvrReadWord() < VERSION_FIRST)
        m_nPosition = 0;
}

void COwnerArchive::SvrRead(unsigned char* dst, int n) {
    if (m_mode == ARCHIVE_STORE)
        SvrChangeMode(ARCHIVE_LOAD);
    // A negative count reads nothing, like a count beyond the end.
    if (n <= 0 || static_cast<long long>(m_nPosition) + n > m_buffer.GetSize())
        return;
    std::memcpy(dst, m_buffer.GetData() + m_nPosition, static_cast<size_t>(n));
    m_nPosition += n;
}

void COwnerArchive::SvrWrite(const unsigned char* src, int n) {
    if (m_mode == ARCHIVE_LOAD)
        SvrChangeMode(ARCHIVE_STORE);
    if (n <= 0)
        return;
    mfCheckBuffer(n);
    std::memcpy(m_buffer.GetData() + m_nPosition, src, static_cast<size_t>(n));
    m_nPosition += n;
}

void COwnerArchive::mfCheckBuffer(int n) {
    const long long needed = static_cast<long long>(m_nPosition) + n;
    if (needed <= m_buffer.GetSize())
        return;
    if (needed > INT_MAX)
        throw std::bad_alloc();
    // The buffer's length is the data held, so a read never runs into unwritten
    // bytes; the allocation grows by GROW_STEP at a time (the array's grow-by
    // step), i.e. to the larger of size + GROW_STEP and the length needed.
    m_buffer.SetSize(static_cast<int>(needed), GROW_STEP);
}

uint16_t COwnerArchive::SvrReadWord() {
    unsigned char bytes[2] = {0, 0};
    SvrRead(bytes, sizeof bytes);
    return littleEndian16(bytes);
}

int32_t COwnerArchive::SvrReadInt32() {
    unsigned char bytes[4] = {0, 0, 0, 0};
    SvrRead(bytes, sizeof bytes);
    const uint32_t value =
        static_cast<uint32_t>(bytes[0]) | (static_cast<uint32_t>(bytes[1]) << 8) |
        (static_cast<uint32_t>(bytes[2]) << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
    return static_cast<int32_t>(value);
}

void COwnerArchive::SvrWriteWord(uint16_t value) {
    const unsigned char bytes[2] = {static_cast<unsigned char>(value & 0xFF),
                                    static_cast<unsigned char>(value >> 8)};
    SvrWrite(bytes, sizeof bytes);
}

uint16_t COwnerArchive::SvrPeekWord() const {
    // Read in place: a peek neither moves the position nor switches the mode.
    if (m_buffer.GetSize() < 2)
        return 0;
    return littleEndian16(m_buffer.GetData());
}
