#include "interfaces/c_handles.h"

#include <gtest/gtest.h>

#include <cstring>

namespace tovrel::test {

namespace {

int released = 0;

void releaseNumber(int * /*handle*/)
{
    ++released;
}

using NumberHandle = CHandle<int, releaseNumber>;

void produce(int **slot, int *value)
{
    *slot = value;
}

class CHandles : public ::testing::Test {
protected:
    CHandles() { released = 0; }

    int number = 5;
    int otherNumber = 6;
};

TEST_F(CHandles, AreReleasedByTheirLibrarysCall)
{
    {
        const NumberHandle handle(&number);
    }
    EXPECT_EQ(released, 1);
}

TEST_F(CHandles, ReceiveWhatACallPutsIntoItsOutParameter)
{
    NumberHandle handle;
    produce(OutParameter(handle), &number);
    EXPECT_EQ(handle.get(), &number);
    EXPECT_EQ(released, 0);
}

TEST_F(CHandles, ReleaseWhatTheyHeldWhenACallFillsThemAgain)
{
    NumberHandle handle(&number);
    produce(OutParameter(handle), &otherNumber);
    EXPECT_EQ(handle.get(), &otherNumber);
    EXPECT_EQ(released, 1);
}

TEST_F(CHandles, AreEmptyAfterACallThatLeavesItsOutParameterAlone)
{
    NumberHandle handle(&number);
    static_cast<void>(static_cast<int **>(OutParameter(handle)));
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(released, 1);
}

TEST_F(CHandles, OwnTextsOfTheCAllocator)
{
    MallocText text;
    *static_cast<char **>(OutParameter(text)) = strdup("serial");
    EXPECT_STREQ(text.get(), "serial");
}

} // namespace

} // namespace tovrel::test
