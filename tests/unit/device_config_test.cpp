// The configuration archive, the blob forms read by InitDevice and the device
// object's state that its slots do not show.
#include <gtest/gtest.h>

#include <vector>

#include "DevBas.h"
#include "DevCtrl.h"
#include "OwnerArchive.h"

namespace {

class FakeComm : public ICommunication {
public:
    int state = 0;
#define KRV_RESERVED(n)          \
    int Reserved##n() override { \
        return 0;                \
    }
    KRV_RESERVED(0)
    KRV_RESERVED(1) KRV_RESERVED(2) KRV_RESERVED(3) KRV_RESERVED(4) KRV_RESERVED(5) KRV_RESERVED(6)
        KRV_RESERVED(7) KRV_RESERVED(8) KRV_RESERVED(9) KRV_RESERVED(10) KRV_RESERVED(11)
            KRV_RESERVED(12) KRV_RESERVED(13) KRV_RESERVED(14)
#undef KRV_RESERVED
                int OnDeviceService(char*) override {
        return 0;
    }
    int GetCommState() override {
        return state;
    }
};

std::vector<int> paramsAfterInit(const std::vector<unsigned char>& blob) {
    CDevCtrl dev("dev", nullptr);
    EXPECT_EQ(dev.InitDevice(blob.data(), static_cast<int>(blob.size())), 0);
    std::vector<int> params;
    const CDevBas* bas = dev.GetRecord().pDevBas;
    EXPECT_NE(bas, nullptr);
    if (bas != nullptr) {
        for (int i = 0; i < bas->m_params.GetSize(); ++i)
            params.push_back(bas->m_params[i]);
    }
    EXPECT_EQ(dev.GetRecord().pArchive, nullptr);
    dev.CleanupDevice();
    return params;
}

}  // namespace

TEST(DeviceConfig, BlobFormsGiveTheirParameters) {
    struct Case {
        std::vector<unsigned char> blob;
        std::vector<int> params;
    };
    const Case cases[] = {
        {{0x02, 0, 0, 0, 0x05, 0, 0, 0, 0xC8, 0, 0, 0}, {5, 200}},
        {{0x20, 0x4E, 0x01, 0, 0, 0, 0x07, 0, 0, 0}, {7}},
        {{0x21, 0x4E, 0x01, 0, 0, 0, 0x07, 0, 0, 0}, {0, 200}},  // newer version: defaults
        {{0x21, 0x4E}, {0, 200}},
        {{0x01, 0x00}, {}},                           // count unreadable
        {{0x03, 0, 0, 0, 0x01, 0, 0, 0}, {1, 0, 0}},  // values past the end read as 0
        {{0x20, 0x4E}, {}},                           // version only
        {{0xFE, 0x00, 0x00, 0x80, 9, 0, 0, 0}, {}},   // negative count
        {{0x07}, {}},                                 // one byte
    };
    for (const Case& c : cases) {
        EXPECT_EQ(paramsAfterInit(c.blob), c.params) << "blob of " << c.blob.size() << " bytes";
    }
}

TEST(DeviceConfig, ArchiveModesAndBounds) {
    COwnerArchive ar;
    ar.SvrChangeMode(COwnerArchive::ARCHIVE_STORE);  // same mode at 0: version word
    ASSERT_EQ(ar.GetSize(), 2);
    EXPECT_EQ(ar.SvrPeekWord(), 20001);
    const unsigned char data[] = {1, 2, 3};
    ar.SvrWrite(data, 3);
    EXPECT_EQ(ar.GetPosition(), 5);

    // Entering load cuts at the position and takes the version word.
    ar.SetPosition(4);
    ar.SvrChangeMode(COwnerArchive::ARCHIVE_LOAD);
    EXPECT_EQ(ar.GetSize(), 4);
    EXPECT_EQ(ar.GetPosition(), 2);
    unsigned char out[4] = {9, 9, 9, 9};
    ar.SvrRead(out, 3);  // only two left: nothing copied, position kept
    EXPECT_EQ(out[0], 9);
    EXPECT_EQ(ar.GetPosition(), 2);
    ar.SvrRead(out, 2);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1], 2);

    // A write from load mode restarts the store with a fresh version word.
    ar.SvrWrite(data, 1);
    EXPECT_EQ(ar.GetMode(), COwnerArchive::ARCHIVE_STORE);
    EXPECT_EQ(ar.GetSize(), 4);
    EXPECT_EQ(ar.GetPosition(), 3);
    EXPECT_EQ(ar.GetBuffer()[2], 1);
}

TEST(DeviceConfig, LifeCycleAndCommunicationState) {
    CDevCtrl dev("dev", nullptr);
    const unsigned char first[] = {0x01, 0, 0, 0, 0x2A, 0, 0, 0};
    const unsigned char second[] = {0x01, 0, 0, 0, 0x63, 0, 0, 0};
    EXPECT_EQ(dev.InitDevice(first, 0), DEVCTRL_BAD_ARGUMENT);
    EXPECT_EQ(dev.InitDevice(nullptr, 8), DEVCTRL_BAD_ARGUMENT);
    ASSERT_EQ(dev.InitDevice(first, sizeof first), 0);
    CDevBas* bas = dev.GetRecord().pDevBas;
    ASSERT_NE(bas, nullptr);
    EXPECT_NE(bas->m_pDevManger, nullptr);
    EXPECT_NE(bas->m_pNtpCtrl, nullptr);
    EXPECT_EQ(bas->m_stateValue, -1.0);
    EXPECT_EQ(bas->m_refreshDone, 0);
    EXPECT_EQ(dev.InitDevice(second, sizeof second), 0);  // the first configuration stays
    EXPECT_EQ(dev.GetRecord().pDevBas, bas);
    EXPECT_EQ(bas->m_params[0], 42);
    EXPECT_EQ(dev.CleanupDevice(), 0);
    EXPECT_EQ(dev.GetRecord().pDevBas, nullptr);
    EXPECT_EQ(dev.CleanupDevice(), 0);
}

TEST(DeviceConfig, CommunicationStateIsInvertedAndSizingKeepsItsQuirks) {
    CDevCtrl dev("dev", nullptr);
    FakeComm comm;
    for (const int link : {1, 2, 5}) {
        comm.state = link;
        EXPECT_EQ(dev.UpdataCommunication(&comm), link == 5 ? DEVCTRL_BAD_ARGUMENT : 0);
        EXPECT_EQ(dev.GetRecord().nCommState, link == 5 ? 1 : 3 - link) << link;
        EXPECT_EQ(dev.GetRecord().pCommunication, &comm);
    }

    const int flags[13] = {};
    struct Step {
        int count;
        int maxChannel;
    };
    // 12 then 9 shrinks to ten entries; 0 keeps whatever exists.
    const Step steps[] = {{12, 12}, {0, 12}, {9, 9}, {3, 9}, {-4, 9}, {10, 10}, {8, 9}};
    for (const Step& step : steps) {
        dev.ChannelRefChange(flags, step.count);
        EXPECT_EQ(dev.GetMaxChannel(), step.maxChannel) << step.count;
        EXPECT_EQ(dev.GetValueArray().GetSize(), step.maxChannel + 1);
        EXPECT_EQ(dev.GetStringArray().GetSize(), step.maxChannel + 1);
        EXPECT_EQ(dev.GetStatusArray().GetSize(), step.maxChannel + 1);
    }
}
