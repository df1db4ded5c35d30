#include <gtest/gtest.h>

#include <fstream>

#include "../fs/temporary_directory.h"
#include "container/host_preparation.h"

namespace {

constexpr const char* kHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

class DefaultMtu : public testing::Test {
protected:
    int detect(const std::string& content) {
        testing::internal::CaptureStderr();
        const int mtu = detectDefaultMtu(directory.write("/route", content).c_str());
        errors = testing::internal::GetCapturedStderr();
        return mtu;
    }

    static int loopbackMtu() {
        int mtu = 0;
        std::ifstream("/sys/class/net/lo/mtu") >> mtu;
        return mtu;
    }

    TemporaryDirectory directory;
    std::string errors;
};

TEST_F(DefaultMtu, IsThatOfTheFirstDefaultRoutesInterface) {
    EXPECT_EQ(detect(std::string(kHeader) + "absent0\t0002A8C0\t00000000\t0001\n"
                                            "lo\t00000000\t0102A8C0\t0003\n"
                                            "absent1\t00000000\t0102A8C0\t0003\n"),
              loopbackMtu());
    EXPECT_EQ(errors, "");
}

TEST_F(DefaultMtu, Is1500WithoutADefaultRoute) {
    EXPECT_EQ(detect(kHeader), 1500);
    EXPECT_EQ(errors,
              "Could not detect default network interface (no default route configured?)\n");
    EXPECT_EQ(detect(std::string(kHeader) + "lo\t000000000\n\nlo\n"), 1500);
}

TEST_F(DefaultMtu, TakesTheFirstLineForTheHeader) {
    EXPECT_EQ(detect("lo\t00000000\n"), 1500);
}

TEST_F(DefaultMtu, Is1500WithoutARouteTable) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(detectDefaultMtu(directory.at("/absent").c_str()), 1500);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(DefaultMtu, Is1500ForAnInterfaceThatIsNotThere) {
    EXPECT_EQ(detect(std::string(kHeader) + "absent0\t00000000\n"), 1500);
    EXPECT_EQ(errors, "MTU detection failed: ioctl(): No such device\n");
}

TEST_F(DefaultMtu, AsksForTheFirst15CharactersOfALongName) {
    EXPECT_EQ(detect(std::string(kHeader) + "absent-interface-name\t00000000\n"), 1500);
    EXPECT_EQ(errors, "MTU detection failed: ioctl(): No such device\n");
}

}  // namespace
