// The simulated HAL on the sandbox's own network interfaces, checked against `ip`.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <bitset>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

#include "sim/SimPanel.h"
#include "wexa_hal.h"

namespace {

std::string run(const std::string& command) {
    std::string out;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[512];
        while (fgets(buffer, sizeof buffer, pipe))
            out += buffer;
        pclose(pipe);
    }
    return out;
}

// Names of the non-loopback interfaces in index order, as `ip` lists them ("veth0@if5" -> veth0).
std::vector<std::string> kernelInterfaces() {
    std::vector<std::string> names;
    std::istringstream lines(run("ip -o link show"));
    for (std::string line; std::getline(lines, line);) {
        if (line.find("LOOPBACK") != std::string::npos)
            continue;
        size_t start = line.find(": ") + 2;
        std::string name = line.substr(start, line.find(':', start) - start);
        names.push_back(name.substr(0, name.find('@')));
    }
    return names;
}

// "address/prefix" of the interface's first IPv4 address, empty when it has none.
std::string kernelIpv4(const std::string& name) {
    std::istringstream words(run("ip -4 -o addr show dev " + name));
    for (std::string word; words >> word;) {
        if (word == "inet" && words >> word)
            return word;
    }
    return "";
}

std::string asIpv4(uint32_t address, uint32_t mask) {
    if (address == 0)
        return "";
    in_addr in{address};
    return std::string(inet_ntoa(in)) + "/" + std::to_string(std::bitset<32>(mask).count());
}

class PlatformHal : public ::testing::Test {
protected:
    void SetUp() override { sim::reset(); }
    void TearDown() override { sim::reset(); }
};

TEST_F(PlatformHal, ListsTheNonLoopbackInterfacesWithTheirAddresses) {
    const std::vector<std::string> expected = kernelInterfaces();
    ASSERT_FALSE(expected.empty()) << "the sandbox provides at least one interface";
    unsigned int count = 0;
    ASSERT_EQ(0, hal_get_network_count(&count));
    ASSERT_EQ(expected.size(), count);
    for (unsigned int i = 0; i < count; ++i) {
        hal_network_info info, byName;
        ASSERT_EQ(0, hal_get_network(i, &info));
        EXPECT_EQ(expected[i], info.name);
        EXPECT_EQ(kernelIpv4(info.name), asIpv4(info.param.addr, info.param.mask)) << info.name;
        EXPECT_EQ(0u, info.param.word0 | info.param.word2);
        ASSERT_EQ(0, hal_get_network_byname(info.name, &byName));
        EXPECT_EQ(0, memcmp(&info, &byName, sizeof info));
    }
    hal_network_info info;
    EXPECT_NE(0, hal_get_network(count, &info));
    EXPECT_NE(0, hal_get_network_byname("lo", &info));
    const std::string overlong(40, 'x');
    EXPECT_NE(0, hal_get_network_byname(overlong.c_str(), &info));
    EXPECT_NE(0, hal_get_network_count(nullptr));
}

TEST_F(PlatformHal, ChangesTheAddressAndMaskOfARealInterface) {
    hal_network_info original;
    ASSERT_EQ(0, hal_get_network(0, &original));
    const std::string name = original.name;

    hal_net_param param = original.param;
    param.addr = inet_addr("10.213.7.9");
    param.mask = inet_addr("255.255.255.128");
    ASSERT_EQ(0, hal_set_ip_addr(name.c_str(), &param));
    EXPECT_EQ("10.213.7.9/25", kernelIpv4(name));

    // A mask change alone keeps the address.
    hal_network_info now;
    ASSERT_EQ(0, hal_get_network_byname(name.c_str(), &now));
    now.param.mask = inet_addr("255.255.0.0");
    ASSERT_EQ(0, hal_set_ip_addr(now.name, &now.param));
    EXPECT_EQ("10.213.7.9/16", kernelIpv4(name));

    now.param.mask = inet_addr("255.0.255.0");  // the kernel takes contiguous masks only
    EXPECT_NE(0, hal_set_ip_addr(now.name, &now.param));
    sim::setIpAddrResult(5);
    EXPECT_EQ(5, hal_set_ip_addr(now.name, &param));
    sim::setIpAddrResult(0);
    EXPECT_NE(0, hal_set_ip_addr("lo", &param));
    EXPECT_NE(0, hal_set_ip_addr(std::string(40, 'x').c_str(), &param));
    EXPECT_EQ("10.213.7.9/16", kernelIpv4(name));
    EXPECT_EQ("hal_set_ip_addr(" + name + ",10.213.7.9,255.255.255.128)",
              sim::journal("net").at(0).text);

    if (original.param.addr != 0) {
        ASSERT_EQ(0, hal_set_ip_addr(name.c_str(), &original.param));
        EXPECT_EQ(asIpv4(original.param.addr, original.param.mask), kernelIpv4(name));
    }
}

TEST_F(PlatformHal, ListingRefusesWhenToldTo) {
    sim::setNetworkResult(3);
    unsigned int count = 0;
    hal_network_info info;
    EXPECT_EQ(3, hal_get_network_count(&count));
    EXPECT_EQ(3, hal_get_network(0, &info));
}

}  // namespace
