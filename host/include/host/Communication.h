// The runtime's communication object as the host keeps it.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "ICommunication.h"

namespace host {

class Communication final : public ICommunication {
public:
    // `state` is what slot 16 answers (the runtime uses 1 and 2).
    explicit Communication(int state = 1) : state_(state) {}
    Communication(const Communication&) = delete;
    Communication& operator=(const Communication&) = delete;
    ~Communication() = default;

    void setState(int state);
    // Device names given to slot 15, oldest first.
    std::vector<std::string> serviceCalls() const;
    int stateQueries() const;
    void clear();

    int Reserved0() override { return 0; }
    int Reserved1() override { return 0; }
    int Reserved2() override { return 0; }
    int Reserved3() override { return 0; }
    int Reserved4() override { return 0; }
    int Reserved5() override { return 0; }
    int Reserved6() override { return 0; }
    int Reserved7() override { return 0; }
    int Reserved8() override { return 0; }
    int Reserved9() override { return 0; }
    int Reserved10() override { return 0; }
    int Reserved11() override { return 0; }
    int Reserved12() override { return 0; }
    int Reserved13() override { return 0; }
    int Reserved14() override { return 0; }
    int OnDeviceService(char* deviceName) override;
    int GetCommState() override;

private:
    mutable std::mutex mutex_;
    int state_;
    int stateQueries_ = 0;
    std::vector<std::string> serviceCalls_;
};

}  // namespace host
