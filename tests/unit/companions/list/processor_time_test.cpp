// The figures of cpu.stat and cpu.max.
#include "companions/list/processor_time.h"

#include <gtest/gtest.h>

#include <optional>

#include "../../fs/temporary_directory.h"

namespace {

class ProcessorTimeOf : public testing::Test {
protected:
    ProcessorTime read() const { return processorTimeOf(directory.at("")); }

    TemporaryDirectory directory;
};

TEST_F(ProcessorTimeOf, IsInSecondsAndProcessors) {
    directory.write("/cpu.stat", "usage_usec 1500000\nuser_usec 1\nsystem_usec 2\n");
    directory.write("/cpu.max", "50000 100000\n");
    const ProcessorTime time = read();
    EXPECT_EQ(time.used, 1.5);
    EXPECT_EQ(time.limit, 0.5);
}

TEST_F(ProcessorTimeOf, HasNoLimitIfTheKernelHasNone) {
    directory.write("/cpu.max", "max 100000\n");
    EXPECT_EQ(read().limit, std::nullopt);
}

TEST_F(ProcessorTimeOf, IsUnknownWithoutTheFilesAndWithOtherText) {
    EXPECT_EQ(read().used, std::nullopt);
    EXPECT_EQ(read().limit, std::nullopt);
    directory.write("/cpu.stat", "nr_periods 4\n");
    directory.write("/cpu.max", "50000 0\n");
    EXPECT_EQ(read().used, std::nullopt);
    EXPECT_EQ(read().limit, std::nullopt);
}

}  // namespace
