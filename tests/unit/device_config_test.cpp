// The configuration archive, the blob forms read by InitDevice and the device
// object's state that its slots do not show.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "DevBas.h"
#include "DevCtrl.h"
#include "OwnerArchive.h"
#include "host/Communication.h"
#include "host/Database.h"

// Allocation failure on demand, for the driver's objects as for everything else in this
// program: the next allocation of at least g_failSize bytes made by g_failThread throws, once.
static pthread_t g_failThread;
static std::atomic<std::size_t> g_failSize{0};  // set after g_failThread; 0: off

void* operator new(std::size_t size) {
    std::size_t armed = g_failSize.load();
    if (armed != 0 && size >= armed && pthread_equal(pthread_self(), g_failThread) &&
        g_failSize.compare_exchange_strong(armed, 0))
        throw std::bad_alloc();
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size ? size : 1);
}
// Not inlined: GCC would otherwise see free() given what operator new returned, and warn.
__attribute__((noinline)) void operator delete(void* p) noexcept {
    std::free(p);
}
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

TEST(DeviceConfig, BlobFormsGiveTheirParameters) {
    struct Case {
        std::vector<unsigned char> blob;
        std::vector<int> params;
    };
    std::vector<int> capped(65536);
    capped[0] = 42;
    const Case cases[] = {
        {{0x02, 0, 0, 0, 0x05, 0, 0, 0, 0xC8, 0, 0, 0}, {5, 200}},
        {{0x20, 0x4E, 0x01, 0, 0, 0, 0x07, 0, 0, 0}, {7}},
        {{0x21, 0x4E, 0x01, 0, 0, 0, 0x07, 0, 0, 0}, {0, 200}},  // newer version: defaults
        {{0x01, 0x00}, {}},                                      // count unreadable
        {{0x03, 0, 0, 0, 0x01, 0, 0, 0}, {1, 0, 0}},             // past the end: 0
        {{0x05, 0, 0, 0, 0x01, 0, 0, 0}, {1, 0, 0, 0, 0}},
        {{0x02, 0, 0, 0}, {0, 0}},
        {{0x01, 0x00, 0xFF, 0x7F, 0x2A, 0, 0, 0}, capped},  // count 0x7FFF0001: capped
        {{0x20, 0x4E}, {}},
        {{0x05, 0x00, 0x00, 0x80, 9, 0, 0, 0}, {}},  // negative count
        {{0x07}, {}},
    };
    for (const Case& c : cases) {
        CDevCtrl dev("dev", nullptr);
        ASSERT_EQ(dev.InitDevice(c.blob.data(), static_cast<int>(c.blob.size())), 0);
        const CArray<int, int>& params = dev.GetRecord().pDevBas->m_params;
        EXPECT_EQ(std::vector<int>(params.GetData(), params.GetData() + params.GetSize()), c.params)
            << "blob of " << c.blob.size() << " bytes";
        EXPECT_EQ(dev.GetRecord().pArchive, nullptr);
        dev.CleanupDevice();
    }
}

TEST(DeviceConfig, ArchiveModesAndBounds) {
    COwnerArchive ar;
    ar.SvrChangeMode(COwnerArchive::ARCHIVE_STORE);  // same mode at 0: version word
    EXPECT_EQ(ar.SvrPeekWord(), 20001);
    const unsigned char data[] = {1, 2, 3};
    ar.SvrWrite(data, 3);
    ar.SetPosition(4);
    ar.SvrChangeMode(COwnerArchive::ARCHIVE_LOAD);  // cut at 4, version word taken
    EXPECT_EQ(ar.GetSize(), 4);
    unsigned char out[3] = {9, 9, 9};
    ar.SvrRead(out, 3);  // two left: nothing copied, position kept
    EXPECT_EQ(out[0], 9);
    ar.SvrRead(out, 2);
    EXPECT_EQ(out[1], 2);
    ar.SvrWrite(data, 1);  // back to store: cut at 4, fresh version word
    EXPECT_EQ(std::vector<unsigned char>(ar.GetBuffer().GetData(), ar.GetBuffer().GetData() + 4),
              (std::vector<unsigned char>{0x21, 0x4E, 1, 2}));
    EXPECT_EQ(ar.GetPosition(), 3);
}

TEST(DeviceConfig, LifeCycle) {
    host::Database db;
    CDevCtrl dev("dev", &db);
    const unsigned char first[] = {0x01, 0, 0, 0, 0x2A, 0, 0, 0};
    const unsigned char second[] = {0x01, 0, 0, 0, 0x63, 0, 0, 0};
    ASSERT_EQ(dev.InitDevice(first, sizeof first), 0);
    CDevBas* bas = dev.GetRecord().pDevBas;
    EXPECT_TRUE(bas->m_pDevManger && bas->m_pNtpCtrl);
    EXPECT_EQ(bas->m_refreshDone + bas->m_initRefreshDone, 0);
    EXPECT_EQ(dev.InitDevice(second, sizeof second), 0);  // the first configuration stays
    EXPECT_EQ(dev.GetRecord().pDevBas, bas);
    EXPECT_EQ(bas->m_params[0], 42);
    // The runtime's link state 1 is the record's communication state 2.
    host::Communication comm(1);
    EXPECT_EQ(dev.UpdataCommunication(&comm), 0);
    EXPECT_EQ(dev.GetRecord().nCommState, 2);
    // A refresh into the eleven entries of ten channels grows neither array.
    const int flags[10] = {};
    EXPECT_EQ(dev.CollectDevData(flags, 10), 0);
    EXPECT_EQ(dev.GetValueArray().GetSize() + dev.GetStringArray().GetSize(), 22);
    EXPECT_EQ(dev.CleanupDevice(), 0);
    EXPECT_EQ(dev.GetRecord().pDevBas, nullptr);
    EXPECT_EQ(dev.CleanupDevice(), 0);
}

// Growth that fails half-way (the text array cannot be had) leaves the arrays and the highest
// index as they were; the next poll with the same count grows them all.
TEST(DeviceConfig, FailedGrowthLeavesTheArraysConsistent) {
    host::Database db;
    CDevCtrl dev("dev", &db);
    const std::vector<int> flags(20000, 0);
    ASSERT_EQ(dev.CollectDevData(flags.data(), 3), 0);
    g_failThread = pthread_self();
    g_failSize = 20001 * sizeof(CString);
    EXPECT_EQ(dev.CollectDevData(flags.data(), 20000), DEVCTRL_BAD_ARGUMENT);
    for (int n : {10, 20001}) {
        EXPECT_EQ(
            (std::vector<int>{dev.GetMaxChannel() + 1, dev.GetValueArray().GetSize(),
                              dev.GetStringArray().GetSize(), dev.GetStatusArray().GetSize()}),
            std::vector<int>(4, n));
        EXPECT_EQ(dev.CollectDevData(flags.data(), 20000), 0);
    }
}
