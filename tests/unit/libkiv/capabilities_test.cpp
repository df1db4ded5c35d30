#include "libkiv/capabilities.h"

#include <gtest/gtest.h>
#include <sys/capability.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"
#include "../util/failure_of.h"

namespace {

/// A line of /proc/self/status without its name. Capability sets are hexadecimal masks there.
std::string ownStatus(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with(name + ":\t")) {
            return line.substr(name.size() + 2);
        }
    }
    return "not there";
}

std::string mask(unsigned long long bits) {
    std::string digits(16, '0');
    for (std::size_t i = digits.size(); i-- > 0; bits >>= 4) {
        digits[i] = "0123456789abcdef"[bits & 15];
    }
    return digits;
}

void printSets() {
    for (const char* set : {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"}) {
        std::cout << set << " " << ownStatus(set) << "\n";
    }
}

std::string sets(unsigned long long own, unsigned long long bounding) {
    return "CapInh " + mask(0) + "\nCapPrm " + mask(own) + "\nCapEff " + mask(own) + "\nCapBnd " +
           mask(bounding) + "\nCapAmb " + mask(0) + "\n";
}

constexpr unsigned long long bit(int capability) {
    return 1ULL << capability;
}

constexpr unsigned long long kChangeOfUser = bit(CAP_SETGID) | bit(CAP_SETUID);

TEST(CapabilityName, MayBeInAnyCaseWithAndWithoutItsPrefix) {
    for (const char* name : {"net_raw", "NET_RAW", "Net_Raw", "cap_net_raw", "CAP_NET_RAW",
                             "Cap_Net_raw", "CAP_net_raw"}) {
        EXPECT_EQ(parseCapability(name), CAP_NET_RAW) << name;
    }
    EXPECT_EQ(parseCapability("chown"), CAP_CHOWN);
    EXPECT_EQ(parseCapability("checkpoint_restore"), CAP_CHECKPOINT_RESTORE);
}

TEST(CapabilityName, IsThatOfTheCapabilitiesLibrary) {
    for (int capability = 0; capability <= CAP_LAST_CAP; ++capability) {
        char* const name = ::cap_to_name(capability);
        EXPECT_EQ(parseCapability(name), capability) << name;
        ::cap_free(name);
    }
}

class NoCapability : public testing::TestWithParam<std::string> {};

TEST_P(NoCapability, IsNamedAsItWasWritten) {
    EXPECT_EQ(failureOf([] { parseCapability(GetParam()); }),
              "unknown capability '" + GetParam() + "'");
}

INSTANTIATE_TEST_SUITE_P(
    Names, NoCapability,
    testing::Values("", "Nonsense", "cap_", "CAP", "cap_cap_kill", "kil", "kills",
                    // numbers mean nothing to a reader of the file
                    "5", "cap_5", "0x5", "63",
                    // one name per item: the text after the name must not be ignored
                    "kill net_raw", "kill,net_raw", "kill\tnet_raw", "kill=ep", "kill+ep", "kill#",
                    "kill ", " kill", "cap_kill 5", "all", "-kill", "!kill"));

TEST(CapabilityName, EndsOnlyAtTheItemsEnd) {
    const std::string name("kill\0net_raw", 12);
    EXPECT_THROW(parseCapability(name), std::runtime_error);
}

/// The output of a child that restricts itself: its sets, or the reason of a failure.
std::string restricted(const CapabilitySet& kept, const std::function<void()>& before,
                       const std::function<void()>& after) {
    const auto result = inChild([&] {
        before();
        const std::string failure = failureOf([&kept] { restrictCapabilities(kept); });
        if (!failure.empty()) {
            std::cout << failure;
            return 1;
        }
        after();
        printSets();
        return 0;
    });
    return result.output;
}

/// Capabilities that a caller may have passed on.
void inheritNetRaw() {
    const cap_value_t value = CAP_NET_RAW;
    const cap_t state = ::cap_get_proc();
    ::cap_set_flag(state, CAP_INHERITABLE, 1, &value, CAP_SET);
    require(::cap_set_proc(state) == 0 || ::geteuid() != 0);
    require(::cap_set_ambient(value, CAP_SET) == 0 || ::geteuid() != 0);
    ::cap_free(state);
}

void nothing() {}

/// Without root restricting fails, and the error must be reported.
std::string forRoot(const std::string& wanted) {
    return ::geteuid() == 0 ? wanted
                            : "cannot drop a capability from the bounding set: "
                              "Operation not permitted";
}

TEST(RestrictedCapabilities, AreThoseOfAChangeOfUser) {
    EXPECT_EQ(restricted({}, nothing, nothing), forRoot(sets(kChangeOfUser, 0)));
}

TEST(RestrictedCapabilities, LeaveInTheBoundingSetWhatIsKept) {
    EXPECT_EQ(restricted({CAP_NET_RAW, CAP_CHOWN}, nothing, nothing),
              forRoot(sets(kChangeOfUser, bit(CAP_NET_RAW) | bit(CAP_CHOWN))));
}

TEST(RestrictedCapabilities, AreNotInheritedFromTheCaller) {
    EXPECT_EQ(restricted({CAP_NET_RAW}, inheritNetRaw, nothing),
              forRoot(sets(kChangeOfUser, bit(CAP_NET_RAW))));
}

TEST(RestrictedCapabilities, AreGoneWithTheChangeOfUser) {
    EXPECT_EQ(restricted({CAP_NET_RAW}, inheritNetRaw, dropPrivileges),
              forRoot(sets(0, bit(CAP_NET_RAW))));
}

}  // namespace
