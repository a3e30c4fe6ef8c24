#include "FwClient/Common/Utilities/UniqueHandle.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

std::vector<int> g_closed;

// Closing changes the thread's last error, as calls of Windows may.
struct NumberTraits {
  using Handle = int;
  static Handle Invalid() noexcept { return -1; }
  static void Close(Handle handle) noexcept {
    g_closed.push_back(handle);
    ::SetLastError(1);
  }
};
using UniqueNumber = UniqueHandle<NumberTraits>;
using Closed = std::vector<int>;

class UniqueHandles : public ::testing::Test {
 protected:
  UniqueHandles() { g_closed.clear(); }
};

TEST_F(UniqueHandles, AreClosedOnceAtTheEnd) {
  {
    const UniqueNumber seven(7);
    const UniqueNumber none;
    EXPECT_TRUE(seven);
    EXPECT_FALSE(none);
    EXPECT_EQ(g_closed, Closed{});
  }
  EXPECT_EQ(g_closed, Closed{7});
}

TEST_F(UniqueHandles, KeepTheLastErrorWhateverClosingDoesToIt) {
  UniqueNumber one(7);
  ::SetLastError(1234);
  one.reset();
  EXPECT_EQ(::GetLastError(), 1234u);
  EXPECT_EQ(g_closed, Closed{7});
}

TEST_F(UniqueHandles, CloseWhatTheyHoldBeforeTheyTakeAnother) {
  UniqueNumber one(1);
  one.reset(2);
  EXPECT_EQ(g_closed, Closed{1});
  *one.put() = 3;
  EXPECT_EQ(g_closed, (Closed{1, 2}));
  one = UniqueNumber(4);
  EXPECT_EQ(g_closed, (Closed{1, 2, 3}));
  EXPECT_EQ(one.get(), 4);
}

TEST_F(UniqueHandles, AreMovedWithoutBeingClosed) {
  UniqueNumber one(1);
  UniqueNumber other(std::move(one));
  EXPECT_EQ(other.get(), 1);
  UniqueNumber& same = other;
  other = std::move(same);
  EXPECT_EQ(other.get(), 1);
  EXPECT_EQ(other.release(), 1);
  EXPECT_FALSE(other);
  EXPECT_EQ(g_closed, Closed{});
}

}  // namespace
