// The machine's IPv4 addresses: what counts as another table, and what cannot be read.
#include "FwClient/Service/QeLaLib/AddressTable.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/FakeAddressTable.h"

namespace {

using Rows = std::vector<MIB_IPADDRROW>;

MIB_IPADDRROW Row(std::uint32_t address, std::uint32_t ifIndex = 1, std::uint32_t mask = 0x00ffffff) {
  return FakeAddressTable::Row(address, ifIndex, mask);
}

class AddressTables : public ::testing::Test {
 protected:
  bool DifferAfter(const Rows& before, const Rows& after) {
    m_system.Set(before);
    m_remembered.Read();
    m_system.Set(after);
    return m_remembered.DiffersFromNow();
  }

  FakeAddressTable m_system{ThisProgram()};
  RememberedAddressTable m_remembered;
};

TEST_F(AddressTables, DifferInAddressInterfaceMaskAndNumber) {
  const Rows two{Row(1), Row(2)};
  EXPECT_TRUE(DifferAfter(two, {Row(1), Row(3)}));
  EXPECT_TRUE(DifferAfter(two, {Row(1), Row(2, 7)}));
  EXPECT_TRUE(DifferAfter(two, {Row(1), Row(2, 1, 0xffff)}));
  EXPECT_TRUE(DifferAfter(two, {Row(1)}));
  EXPECT_TRUE(DifferAfter(two, {Row(1), Row(2), Row(2)}));
  EXPECT_TRUE(DifferAfter(two, {}));
  EXPECT_TRUE(DifferAfter({}, two));
}

TEST_F(AddressTables, DoNotDifferInTheOrderNorInWhatMayChangeWhileTheAddressStays) {
  MIB_IPADDRROW restless = Row(2);
  restless.dwReasmSize = 1;
  restless.dwBCastAddr = 2;
  restless.unused1 = 3;
  restless.wType = 4;
  EXPECT_FALSE(DifferAfter({Row(1), Row(2)}, {Row(1), Row(2)}));
  EXPECT_FALSE(DifferAfter({Row(1), Row(2)}, {Row(2), Row(1)}));
  EXPECT_FALSE(DifferAfter({Row(1), Row(2)}, {Row(1), restless}));
  EXPECT_FALSE(DifferAfter({}, {}));
}

TEST_F(AddressTables, NothingDiffersFromATableThatWasNeverRead) { EXPECT_FALSE(m_remembered.DiffersFromNow()); }

TEST_F(AddressTables, TableThatCannotBeReadDiffersFromNoneAndIsRemembered) {
  m_remembered.Read();
  m_system.Fail(ERROR_NOT_SUPPORTED);
  EXPECT_FALSE(m_remembered.DiffersFromNow());
  m_remembered.Read();
  m_system.Fail(NO_ERROR);
  m_system.Change();
  EXPECT_FALSE(m_remembered.DiffersFromNow());
}

TEST_F(AddressTables, OfAnySizeAreReadWhole) {
  for (const std::size_t size :
       {std::size_t{1}, std::size_t{41}, std::size_t{42}, std::size_t{43}, std::size_t{5000}}) {
    SCOPED_TRACE(size);
    Rows rows;
    for (std::size_t i = 0; i < size; ++i) rows.push_back(Row(static_cast<std::uint32_t>(i)));
    m_system.Set(rows);
    const AddressTable table = ReadAddressTable();
    EXPECT_TRUE(table.known);
    ASSERT_EQ(table.rows.size(), size);
    Rows other = rows;
    other.back().dwAddr = 0xffffffff;
    EXPECT_TRUE(DifferAfter(rows, other));
  }
}

TEST_F(AddressTables, ThatGrowWhileTheyAreReadAreAskedForAgainAndGivenUpInTheEnd) {
  std::size_t size = 100;
  std::size_t growths = 0;
  m_system.OnCall([&] {
    if (growths == 0) return;
    --growths;
    m_system.Set(Rows(size *= 2, Row(1)));
  });
  growths = 3;
  EXPECT_TRUE(ReadAddressTable().known);
  const std::size_t before = m_system.Calls();
  growths = 1000;
  size = 100;
  EXPECT_FALSE(ReadAddressTable().known);
  EXPECT_EQ(m_system.Calls() - before, 5u);
}

TEST_F(AddressTables, ThatCannotBeReadAreAskedForOnce) {
  m_system.Fail(ERROR_NOT_SUPPORTED);
  EXPECT_FALSE(ReadAddressTable().known);
  EXPECT_EQ(m_system.Calls(), 1u);
}

// What is remembered is read and written by several threads.
TEST_F(AddressTables, AreRememberedAndComparedInsideTheLock) {
  static int entered;
  static int left;
  entered = left = 0;
  const ImportPatch enter(ThisProgram(), "AcquireSRWLockExclusive", +[](SRWLOCK*) { ++entered; });
  const ImportPatch leave(ThisProgram(), "ReleaseSRWLockExclusive", +[](SRWLOCK*) { ++left; });
  m_remembered.Read();
  EXPECT_EQ(entered, 1);
  EXPECT_EQ(left, 1);
  EXPECT_FALSE(m_remembered.DiffersFromNow());
  EXPECT_EQ(entered, 2);
  EXPECT_EQ(left, 2);
}

TEST_F(AddressTables, WithoutMemoryAreUnknown) {
  m_system.Set(Rows(100, Row(1)));
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    AddressTable table;
    bool failed = false;
    attempt([&] { table = ReadAddressTable(); });
    failed = !table.known;
    EXPECT_EQ(table.rows.size(), failed ? 0u : 100u);
  });
}

// The system's own answer.
TEST(SystemAddressTable, HoldsTheLoopbackAddress) {
  const AddressTable table = ReadAddressTable();
  ASSERT_TRUE(table.known);
  bool found = false;
  for (const AddressTableRow& row : table.rows) found = found || row.address == 0x0100007f;
  EXPECT_TRUE(found);
  EXPECT_FALSE(Differ(table, ReadAddressTable()));
}

}  // namespace
