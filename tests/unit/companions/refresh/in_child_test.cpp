#include "companions/refresh/in_child.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

/// The text of the exception; empty when there is none.
std::string failureOf(const std::function<void()>& action) {
    try {
        runInChild(action);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(InChild, ChangesOfTheActionStayInTheChild) {
    const pid_t parent = ::getpid();
    int changed = 0;
    EXPECT_EQ(failureOf([&changed, parent] {
                  changed = 1;
                  if (::getpid() == parent) {
                      throw std::runtime_error("not in a child");
                  }
              }),
              "");
    EXPECT_EQ(changed, 0);
}

TEST(InChild, AnExceptionIsThrownAgainWithItsTextOfAnyLength) {
    const std::string text(200'000, 'x');
    EXPECT_EQ(failureOf([&text] { throw std::runtime_error(text); }), text);
}

TEST(InChild, ASignalThatEndsItIsAnError) {
    EXPECT_EQ(failureOf([] { std::raise(SIGKILL); }),
              "a child process was ended by signal " + std::to_string(SIGKILL));
}

TEST(InChild, AnEndWithoutATextIsAnErrorToo) {
    EXPECT_THROW(runInChild([] { ::_exit(3); }), std::runtime_error);
}

}  // namespace
