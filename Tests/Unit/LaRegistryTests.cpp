#include "FwClient/Service/QeLaLib/LaRegistry.h"

#include <windows.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

class LaRegistryRoundTrip : public testing::Test {
 protected:
  static constexpr wchar_t kKey[] = L"SOFTWARE\\Some\\Key";

  RedirectedMachineHive m_hive;
};

TEST_F(LaRegistryRoundTrip, ReadsWhatWasWritten) {
  const Bytes written = {0, 1, 0x91, 0xff};
  ASSERT_EQ(WriteLaValue(kKey, L"la", written), ERROR_SUCCESS);
  Bytes read = {7};
  EXPECT_EQ(ReadLaValue(kKey, L"la", read), ERROR_SUCCESS);
  EXPECT_EQ(read, written);
}

TEST_F(LaRegistryRoundTrip, WritingAgainReplacesTheValue) {
  ASSERT_EQ(WriteLaValue(kKey, L"la", Bytes(1000, 1)), ERROR_SUCCESS);
  ASSERT_EQ(WriteLaValue(kKey, L"la", {2}), ERROR_SUCCESS);
  Bytes read;
  EXPECT_EQ(ReadLaValue(kKey, L"la", read), ERROR_SUCCESS);
  EXPECT_EQ(read, Bytes{2});
}

TEST_F(LaRegistryRoundTrip, AnEmptyValueReadsAsNoBytes) {
  ASSERT_EQ(WriteLaValue(kKey, L"la", {}), ERROR_SUCCESS);
  Bytes read = {7};
  EXPECT_EQ(ReadLaValue(kKey, L"la", read), ERROR_SUCCESS);
  EXPECT_TRUE(read.empty());
}

TEST_F(LaRegistryRoundTrip, AMissingKeyAndAMissingValueAreNotFound) {
  Bytes read = {7};
  EXPECT_EQ(ReadLaValue(kKey, L"la", read), DWORD{ERROR_FILE_NOT_FOUND});
  ASSERT_EQ(WriteLaValue(kKey, L"other", {1}), ERROR_SUCCESS);
  EXPECT_EQ(ReadLaValue(kKey, L"la", read), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(read, Bytes{7});
}

TEST_F(LaRegistryRoundTrip, AValueOfAnotherTypeIsInvalidData) {
  ASSERT_EQ(WriteLaValue(kKey, L"other", {1}), ERROR_SUCCESS);
  HKEY key = nullptr;
  ASSERT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_WRITE, &key), ERROR_SUCCESS);
  const BYTE data[4] = {L'a', 0, 0, 0};
  for (const auto type : std::initializer_list<DWORD>{REG_SZ, REG_DWORD, REG_NONE, REG_EXPAND_SZ, REG_MULTI_SZ}) {
    ASSERT_EQ(::RegSetValueExW(key, L"la", 0, type, data, sizeof data), ERROR_SUCCESS);
    Bytes read = {7};
    EXPECT_EQ(ReadLaValue(kKey, L"la", read), DWORD{ERROR_INVALID_DATA}) << type;
    EXPECT_EQ(read, Bytes{7});
  }
  ::RegCloseKey(key);
}

TEST_F(LaRegistryRoundTrip, KeepsAMebibyte) {
  Bytes written(1 << 20);
  for (std::size_t i = 0; i < written.size(); ++i) written[i] = static_cast<std::uint8_t>(i * 31);
  ASSERT_EQ(WriteLaValue(kKey, L"la", written), ERROR_SUCCESS);
  Bytes read;
  EXPECT_EQ(ReadLaValue(kKey, L"la", read), ERROR_SUCCESS);
  EXPECT_EQ(read, written);
}

class LaRegistryCalls : public testing::Test {
 protected:
  using Call = ScriptedRegistry::Call;
  using Calls = std::vector<Call>;

  ~LaRegistryCalls() override { EXPECT_EQ(m_registry.OpenKeys(), 0u); }

  void Put(const Bytes& bytes, DWORD type = REG_BINARY) {
    m_registry.Set(kKey, kName, type, bytes.data(), bytes.size());
  }
  void PutBetweenTheQueries(const Bytes& bytes, DWORD type = REG_BINARY) {
    m_registry.OnCall([=, this](const ScriptedRegistry::Call& call) {
      if (call.function == "RegQueryValueExW" && m_registry.Count("RegQueryValueExW") == 1) Put(bytes, type);
    });
  }
  unsigned long Read() { return ReadLaValue(kKey, kName, m_bytes); }
  unsigned long Write() { return WriteLaValue(kKey, kName, {1, 2, 3}); }

  const std::wstring kKey = L"Some\\Key";
  const std::wstring kName = L"value";
  // Access masks: KEY_READ 20019, KEY_ALL_ACCESS f003f, KEY_READ | KEY_WRITE 2001f.
  const Call kOpenForReading = ScriptedRegistry::Open(HKEY_LOCAL_MACHINE, kKey, 0x20019);
  const Call kOpenForWriting = ScriptedRegistry::Open(HKEY_LOCAL_MACHINE, kKey, 0xf003f);
  const Call kCreate{.function = "RegCreateKeyExW", .name = kKey, .hive = HKEY_LOCAL_MACHINE, .access = 0x2001f};
  const Call kSize = ScriptedRegistry::Query(kName, false, 0);
  const Call kSet{.function = "RegSetValueExW", .name = kName, .bytes = 3};
  const Call kFlush{.function = "RegFlushKey"};
  const Call kClose{.function = "RegCloseKey"};

  ScriptedRegistry m_registry{ThisProgram()};
  Bytes m_bytes = {7};
};

TEST_F(LaRegistryCalls, ReadingAsksForTheSizeAndThenForTheBytes) {
  Put({1, 2, 3});
  EXPECT_EQ(Read(), ERROR_SUCCESS);
  EXPECT_EQ(m_bytes, (Bytes{1, 2, 3}));
  EXPECT_EQ(m_registry.Calls(), (Calls{kOpenForReading, kSize, ScriptedRegistry::Query(kName, true, 3), kClose}));
}

TEST_F(LaRegistryCalls, ReadingReturnsTheErrorOfOpening) {
  m_registry.Fail("RegOpenKeyExW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(Read(), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(m_bytes, Bytes{7});
  EXPECT_EQ(m_registry.Calls(), Calls{kOpenForReading});
}

TEST_F(LaRegistryCalls, ReadingReturnsTheErrorOfEitherQuery) {
  Put({1});
  for (const std::size_t query : {1u, 2u}) {
    m_registry.Fail("RegQueryValueExW", ERROR_KEY_DELETED, query);
    EXPECT_EQ(Read(), DWORD{ERROR_KEY_DELETED}) << query;
    EXPECT_EQ(m_bytes, Bytes{7});
  }
}

TEST_F(LaRegistryCalls, ReadingRefusesAnotherTypeAtTheFirstQuery) {
  Put({1}, REG_SZ);
  EXPECT_EQ(Read(), DWORD{ERROR_INVALID_DATA});
  EXPECT_EQ(m_bytes, Bytes{7});
  EXPECT_EQ(m_registry.Calls(), (Calls{kOpenForReading, kSize, kClose}));
}

TEST_F(LaRegistryCalls, ReadingRefusesATypeThatChangesBetweenTheQueries) {
  Put({1});
  PutBetweenTheQueries({2}, REG_DWORD);
  EXPECT_EQ(Read(), DWORD{ERROR_INVALID_DATA});
  EXPECT_EQ(m_bytes, Bytes{7});
}

TEST_F(LaRegistryCalls, ReadingFailsWhenTheValueGrowsBetweenTheQueries) {
  Put({1});
  PutBetweenTheQueries({1, 2});
  EXPECT_EQ(Read(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(m_bytes, Bytes{7});
}

// Without a byte to read into, the second query is one for the size again, and succeeds.
TEST_F(LaRegistryCalls, ReadingFailsWhenAnEmptyValueGrowsBetweenTheQueries) {
  Put({});
  PutBetweenTheQueries({1, 2});
  EXPECT_EQ(Read(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(m_bytes, Bytes{7});
}

TEST_F(LaRegistryCalls, ReadingTakesAValueThatShrinksBetweenTheQueries) {
  Put({1, 2, 3});
  PutBetweenTheQueries({4});
  EXPECT_EQ(Read(), ERROR_SUCCESS);
  EXPECT_EQ(m_bytes, Bytes{4});
}

TEST_F(LaRegistryCalls, ReadingAnEmptyValueGivesNoBytes) {
  Put({});
  EXPECT_EQ(Read(), ERROR_SUCCESS);
  EXPECT_TRUE(m_bytes.empty());
}

TEST_F(LaRegistryCalls, WritingOpensSetsAndFlushes) {
  m_registry.MakeKey(kKey);
  EXPECT_EQ(Write(), ERROR_SUCCESS);
  EXPECT_EQ(m_registry.Calls(), (Calls{kOpenForWriting, kSet, kFlush, kClose}));
  EXPECT_EQ(m_registry.Value(kKey, kName), (Bytes{1, 2, 3}));
  EXPECT_EQ(m_registry.TypeOf(kKey, kName), DWORD{REG_BINARY});
}

TEST_F(LaRegistryCalls, WritingCreatesTheKeyWhenItCannotBeOpened) {
  for (const DWORD error : std::initializer_list<DWORD>{ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED}) {
    m_registry.Fail("RegOpenKeyExW", error);
    m_registry.ClearCalls();
    EXPECT_EQ(Write(), ERROR_SUCCESS);
    EXPECT_EQ(m_registry.Calls(), (Calls{kOpenForWriting, kCreate, kSet, kFlush, kClose}));
  }
}

TEST_F(LaRegistryCalls, WritingReturnsTheErrorOfCreating) {
  m_registry.Fail("RegCreateKeyExW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(Write(), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(m_registry.Calls(), (Calls{kOpenForWriting, kCreate}));
}

TEST_F(LaRegistryCalls, WritingDoesNotFlushWhatItCouldNotSet) {
  m_registry.MakeKey(kKey);
  m_registry.Fail("RegSetValueExW", ERROR_NO_SYSTEM_RESOURCES);
  EXPECT_EQ(Write(), DWORD{ERROR_NO_SYSTEM_RESOURCES});
  EXPECT_EQ(m_registry.Calls(), (Calls{kOpenForWriting, kSet, kClose}));
}

TEST_F(LaRegistryCalls, WritingReturnsTheResultOfFlushing) {
  m_registry.MakeKey(kKey);
  m_registry.Fail("RegFlushKey", ERROR_REGISTRY_IO_FAILED);
  EXPECT_EQ(Write(), DWORD{ERROR_REGISTRY_IO_FAILED});
  EXPECT_EQ(m_registry.Calls(), (Calls{kOpenForWriting, kSet, kFlush, kClose}));
}

}  // namespace
