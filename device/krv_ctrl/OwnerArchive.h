// A small byte archive over the device configuration blob.
#pragma once

#include <cstdint>

#include "CArray.h"

class COwnerArchive {
public:
    enum ARCHIVESTATUS : int {
        ARCHIVE_LOAD = 0,
        ARCHIVE_STORE = 1,
    };

    // Version word at the front of a stored archive.
    static constexpr int VERSION_STORE = 20001;
    // Anything below this is old data without a version word.
    static constexpr int VERSION_FIRST = 20000;
    // Growth step of the buffer.
    static constexpr int GROW_STEP = 16534;

    COwnerArchive();
    virtual ~COwnerArchive();
    COwnerArchive(const COwnerArchive&) = delete;
    COwnerArchive& operator=(const COwnerArchive&) = delete;

    void SvrChangeMode(ARCHIVESTATUS mode);
    // Copies nothing (silently) when fewer than `n` bytes remain.
    void SvrRead(unsigned char* dst, int n);
    void SvrWrite(const unsigned char* src, int n);
    void mfCheckBuffer(int n);

    // Little-endian numbers; bytes that cannot be read count as 0.
    uint16_t SvrReadWord();
    int32_t SvrReadInt32();
    void SvrWriteWord(uint16_t value);

    // The first 16-bit word of the buffer (0 when shorter), read in place.
    uint16_t SvrPeekWord() const;

    int GetPosition() const { return m_nPosition; }
    void SetPosition(int position) { m_nPosition = position; }
    int GetSize() const { return m_buffer.GetSize(); }
    ARCHIVESTATUS GetMode() const { return m_mode; }
    const CByteArray& GetBuffer() const { return m_buffer; }

private:
    void readVersion();

    CByteArray m_buffer;
    int m_nPosition;
    ARCHIVESTATUS m_mode;
};
