#include "container/default_route.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iostream>

#include "../fs/narrowed_process.h"
#include "../fs/temporary_directory.h"
#include "../util/captured.h"
#include "../util/child_process.h"

namespace {

constexpr const char* kHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

class DefaultMtu : public testing::Test {
protected:
    int detect(const std::string& content) {
        Captured standardError(STDERR_FILENO);
        const int mtu = detectDefaultMtu(directory.write("/route", content).c_str());
        errors = standardError.text();
        return mtu;
    }

    /// Runs in a child that `narrow` has restricted, for a table whose default route is through lo.
    int detectNarrowed(const std::function<void()>& narrow) {
        const std::string table = directory.write("/route", "header\nlo\t00000000\n");
        const auto result = inChild([&narrow, &table] {
            narrow();
            std::cout << detectDefaultMtu(table.c_str()) << std::flush;
            return 0;
        });
        EXPECT_EQ(outcome(result), 0);
        errors = result.errorOutput;
        return std::stoi(result.output);
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
    Captured standardError(STDERR_FILENO);
    EXPECT_EQ(detectDefaultMtu(directory.at("/absent").c_str()), 1500);
    EXPECT_EQ(standardError.text(), "");
}

TEST_F(DefaultMtu, Is1500ForAnInterfaceThatIsNotThere) {
    EXPECT_EQ(detect(std::string(kHeader) + "absent0\t00000000\n"), 1500);
    EXPECT_EQ(errors, "MTU detection failed: ioctl(): No such device\n");
}

TEST_F(DefaultMtu, AsksForTheFirst15CharactersOfALongName) {
    EXPECT_EQ(detect(std::string(kHeader) + "absent-interface-name\t00000000\n"), 1500);
    EXPECT_EQ(errors, "MTU detection failed: ioctl(): No such device\n");
}

// Unusual route tables, and the MTU when the system calls fail.

constexpr const char* kNoRoute =
    "Could not detect default network interface (no default route configured?)\n";

using RouteTable = DefaultMtu;

TEST_F(RouteTable, WithoutAnyLineHasNoDefaultRoute) {
    EXPECT_EQ(detect(""), 1500);
    EXPECT_EQ(errors, kNoRoute);
}

TEST_F(RouteTable, ThatIsADirectoryHasNoDefaultRoute) {
    Captured standardError(STDERR_FILENO);
    EXPECT_EQ(detectDefaultMtu(directory.path.c_str()), 1500);
    EXPECT_EQ(standardError.text(), kNoRoute);
}

TEST_F(RouteTable, MaySeparateItsWordsByBlanks) {
    EXPECT_EQ(detect("header\n  lo   00000000 \n"), loopbackMtu());
    EXPECT_EQ(errors, "");
}

TEST_F(RouteTable, MayEndWithoutANewline) {
    EXPECT_EQ(detect("header\nlo\t00000000"), loopbackMtu());
}

TEST_F(RouteTable, IsSearchedPastLinesThatAreTooShort) {
    EXPECT_EQ(detect("header\n\nabsent0\n\t \nlo\t00000000\n"), loopbackMtu());
    EXPECT_EQ(errors, "");
}

TEST_F(RouteTable, DoesNotTakeSimilarDestinationsForTheDefault) {
    EXPECT_EQ(detect("header\nlo\t0000000\nlo\t0x00000000\nlo\t00000001\nlo\t0\n"), 1500);
    EXPECT_EQ(errors, kNoRoute);
}

TEST_F(RouteTable, DoesNotTakeAnInterfaceNamedLikeTheDefaultForOne) {
    EXPECT_EQ(detect("header\n00000000\t0102A8C0\n"), 1500);
    EXPECT_EQ(errors, kNoRoute);
}

TEST_F(RouteTable, StopsAtItsFirstDefaultRouteEvenIfThatFails) {
    EXPECT_EQ(detect("header\nabsent0\t00000000\nlo\t00000000\n"), 1500);
    EXPECT_EQ(errors, "MTU detection failed: ioctl(): No such device\n");
}

TEST_F(RouteTable, WithThousandsOfRoutesIsReadToTheDefault) {
    std::string content = "header\n";
    for (int i = 0; i < 50'000; ++i) {
        content += "eth0\t0002A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n";
    }
    EXPECT_EQ(detect(content + "lo\t00000000\t0102A8C0\t0003\n"), loopbackMtu());
}

TEST_F(RouteTable, WithoutADescriptorForItYieldsTheUsualMtuSilently) {
    EXPECT_EQ(detectNarrowed([] { leaveDescriptors(0); }), 1500);
    EXPECT_EQ(errors, "");
}

TEST_F(RouteTable, WithoutASocketYieldsTheUsualMtuSilently) {
    EXPECT_EQ(detectNarrowed([] { denySystemCall(SYS_socket, EMFILE); }), 1500);
    EXPECT_EQ(errors, "");
}

TEST_F(RouteTable, WithAQueryThatFailsYieldsTheUsualMtuAndTheReason) {
    EXPECT_EQ(detectNarrowed([] { denySystemCall(SYS_ioctl, EPERM); }), 1500);
    EXPECT_EQ(errors, "MTU detection failed: ioctl(): Operation not permitted\n");
}

TEST_F(RouteTable, WithAnMtuBelowOneYieldsTheUsualMtu) {
    // the query succeeds and does not change the zero
    EXPECT_EQ(detectNarrowed([] { denySystemCall(SYS_ioctl, 0); }), 1500);
    EXPECT_EQ(errors, "");
}

}  // namespace
