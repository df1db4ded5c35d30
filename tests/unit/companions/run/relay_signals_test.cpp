#include "companions/run/relay_signals.h"

#include <gtest/gtest.h>

#include <csignal>

#include "../../util/child_process.h"

namespace {

TEST(RelaySignals, WaitUntilTheyAreTaken) {
    EXPECT_EQ(outcome(inChild([] {
                  blockRelaySignals();
                  RelaySignals signals;
                  if (signals.next()) {
                      return 1;
                  }
                  ::raise(SIGTERM);
                  ::raise(SIGUSR1);
                  const auto first = signals.next();
                  const auto second = signals.next();
                  return first == SIGUSR1 && second == SIGTERM && !signals.next() ? 0 : 2;
              })),
              0);
}

TEST(RelaySignals, LeaveOutSignalsThatTheCallerIgnores) {
    EXPECT_EQ(outcome(inChild([] {
                  std::signal(SIGHUP, SIG_IGN);
                  blockRelaySignals();
                  RelaySignals signals;
                  ::raise(SIGHUP);
                  return signals.next() ? 1 : 0;
              })),
              0);
}

TEST(RelaySignals, LeaveFaultsToTheKernel) {
    EXPECT_EQ(outcome(inChild([] {
                  blockRelaySignals();
                  ::raise(SIGABRT);
                  return 0;
              })),
              -SIGABRT);
}

TEST(Obey, EndsTheProcessByASignalThatIsBlocked) {
    EXPECT_EQ(outcome(inChild([] {
                  blockRelaySignals();
                  obey(SIGTERM);
                  return 0;
              })),
              -SIGTERM);
}

}  // namespace
