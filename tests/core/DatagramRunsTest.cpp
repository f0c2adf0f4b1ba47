// The size of datagrams and how many of them one call carries.
#include "utility/core/DatagramRuns.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>

#include "utility/core/ReceiveBuffer.h"

namespace {

using namespace Tarn::Core;

TEST(DatagramRuns, TheSameTextIsTheHostItself) {
  EXPECT_EQ(DatagramLimit("10.0.0.1", "10.0.0.1"), 49152);
  EXPECT_EQ(DatagramLimit("10.0.0.1", "10.0.0.2"), 1400);
  EXPECT_EQ(DatagramLimit("10.0.0.1", "10.0.0.10"), 1400);
  EXPECT_EQ(DatagramLimit("10.0.0.1", "10.0.0.01"), 1400);  // the same address in other words
  EXPECT_EQ(DatagramLimit("0.0.0.0", ""), 1400);
}

TEST(DatagramRuns, ARunIsAWholeNumberOfDatagramsOrAllThatIsLeft) {
  EXPECT_EQ(SegmentedRun(65536, 1400), 46U * 1400);
  EXPECT_EQ(SegmentedRun(46 * 1400, 1400), 46U * 1400);
  EXPECT_EQ(SegmentedRun(46 * 1400 - 1, 1400), 46U * 1400 - 1);
  EXPECT_EQ(SegmentedRun(1401, 1400), 1401U);
  EXPECT_EQ(SegmentedRun(1, 1400), 1U);
  EXPECT_EQ(SegmentedRun(0, 1400), 0U);
}

TEST(DatagramRuns, LargeDatagramsGoOneByOne) {
  EXPECT_EQ(SegmentedRun(100000, 49152), 49152U);
  EXPECT_EQ(SegmentedRun(100000, 65507), 65507U);
  EXPECT_EQ(SegmentedRun(100000, 70000), 70000U);
}

TEST(DatagramRuns, NoRunHoldsMoreThanSixtyFourDatagrams) {
  EXPECT_EQ(SegmentedRun(100000, 10), 640U);
}

using Buffer = std::unique_ptr<char, ReceiveBufferFreer>;

TEST(DatagramBuffer, HasAByteMoreThanItsCapacity) {
  for (const int capacity : {0, 1, 16, 100000}) {
    const Buffer buffer(NewDatagramBuffer(capacity));
    ASSERT_NE(buffer, nullptr);
    buffer.get()[capacity] = '\0';
    EXPECT_EQ(HeadOf(buffer.get()).capacity, capacity);
  }
  EXPECT_EQ(NewDatagramBuffer(-1), nullptr);
  EXPECT_EQ(NewDatagramBuffer(INT_MIN), nullptr);
}

TEST(DatagramBuffer, TakesTheSmallerOfCapacityAndSetting) {
  const Buffer buffer(NewDatagramBuffer(100));
  EXPECT_EQ(DatagramRoomIn(buffer.get(), 100), 100);
  EXPECT_EQ(DatagramRoomIn(buffer.get(), INT_MAX), 100);
  EXPECT_EQ(DatagramRoomIn(buffer.get(), 7), 7);
  EXPECT_EQ(DatagramRoomIn(buffer.get(), 0), 0);
  EXPECT_EQ(DatagramRoomIn(buffer.get(), -1), 0);
  EXPECT_EQ(DatagramRoomIn(buffer.get(), INT_MIN), 0);
}

}  // namespace
