// The output of kiv-list. The end-to-end tests check the keys and whole objects.
#include "companions/list/list_output.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using testing::HasSubstr;
using testing::Not;

ListedAccount named(const char* name) {
    ListedAccount listed;
    listed.account = name;
    return listed;
}

TEST(ListOutput, OfNoAccountIsAnEmptyArray) {
    EXPECT_EQ(jsonOf({}), "[]\n");
}

TEST(ListOutput, WritesTheLargestFigureExactly) {
    ListedAccount listed = named("alice");
    listed.memory = std::numeric_limits<std::int64_t>::max();
    EXPECT_THAT(jsonOf({listed}), HasSubstr("\"memory\": 9223372036854775807,"));
}

TEST(ListOutput, EscapesNamesAsJsonDoes) {
    EXPECT_THAT(jsonOf({named("a\"b\\c\nd\001")}), HasSubstr(R"("account": "a\"b\\c\nd\u0001")"));
    EXPECT_THAT(jsonOf({named("g\377h")}), HasSubstr("\"account\": \"g\357\277\275h\""));
}

TEST(ListOutput, AlignsTheColumnsOfTheTable) {
    ListedAccount listed = named("alice");
    listed.state = ContainerState::Running;
    listed.address = "100.64.0.6";
    listed.interface = "veth-alice";
    listed.processes = 1;
    listed.processesLimit = 2;
    listed.memory = 3;
    listed.outdated = true;
    EXPECT_EQ(tableOf({listed, named("b")}),
              "Account  State    Address     Interface   Processes  Memory  Since  Outdated\n"
              "alice    running  100.64.0.6  veth-alice  1/2        3       -      yes\n"
              "b        stopped  -           -           -          -       -      -\n");
}

TEST(ListOutput, KeepsControlCharactersFromTheTerminal) {
    EXPECT_THAT(tableOf({named("a\033b")}), Not(HasSubstr("\033")));
}

}  // namespace
