// The test programs' entry: GoogleTest, plus a check after every test that it
// left no descriptor open and a fresh fake platform before the next.
#include <gtest/gtest.h>

#include "fake_platform.h"

namespace {
class DescriptorCheck : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override
    {
        fake::reset();
        before_ = fake::openDescriptorCount();
    }
    void OnTestEnd(const testing::TestInfo &) override
    {
        EXPECT_EQ(fake::openDeviceCount(), 0) << "a fake device node was left open";
        EXPECT_EQ(fake::openDescriptorCount(), before_) << "the test left a descriptor open";
        fake::reset();
    }
    int before_ = 0;
};
} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new DescriptorCheck);
    return RUN_ALL_TESTS();
}
