// Notice of changes in the registry, and what it takes to write there.
#include <winsock2.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/UniqueName.h"

namespace {

constexpr DWORD kLimitMs = 10'000;

// A key of the test's own, with a key "Watched" below it. Removed at the end.
class OwnKey {
 public:
  explicit OwnKey(HKEY hive) : m_hive(hive) { EXPECT_EQ(Make(m_path + L"\\Watched", KEY_ALL_ACCESS, m_watched), 0); }
  ~OwnKey() { ::RegDeleteTreeW(m_hive, m_path.c_str()); }
  OwnKey(const OwnKey&) = delete;
  OwnKey& operator=(const OwnKey&) = delete;

  const std::wstring& Path() const { return m_path; }
  const UniqueRegKey& Watched() const { return m_watched; }

  LSTATUS Make(const std::wstring& path, REGSAM access, UniqueRegKey& key) const {
    return ::RegCreateKeyExW(m_hive, path.c_str(), 0, nullptr, 0, access, nullptr, key.put(), nullptr);
  }
  // As the library opens what it watches.
  UniqueRegKey OpenForNotice(const std::wstring& path) const {
    UniqueRegKey key;
    EXPECT_EQ(::RegOpenKeyExW(m_hive, path.c_str(), 0, KEY_NOTIFY, key.put()), ERROR_SUCCESS);
    return key;
  }
  LSTATUS SetValue(DWORD number) const {
    return ::RegSetValueExW(m_watched.get(), L"la", 0, REG_BINARY, reinterpret_cast<const BYTE*>(&number),
                            sizeof number);
  }
  LSTATUS RemoveWatched() const { return ::RegDeleteKeyW(m_hive, (m_path + L"\\Watched").c_str()); }

 private:
  HKEY m_hive;
  std::wstring m_path = L"Software\\QeLaLibTests-" + UniqueName();
  UniqueRegKey m_watched;
};

class Notice {
 public:
  LSTATUS Ask(const UniqueRegKey& key, DWORD filter) const {
    return ::RegNotifyChangeKeyValue(key.get(), FALSE, filter, m_event.get(), TRUE);
  }
  bool Came(DWORD withinMs = kLimitMs) const { return ::WaitForSingleObject(m_event.get(), withinMs) == WAIT_OBJECT_0; }
  void Reset() const { ::ResetEvent(m_event.get()); }

 private:
  UniqueKernelHandle m_event{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

TEST(WindowsTruth, AChangedValueIsToldOnce) {
  const OwnKey own(HKEY_CURRENT_USER);
  const UniqueRegKey key = own.OpenForNotice(own.Path() + L"\\Watched");
  const Notice notice;
  ASSERT_EQ(notice.Ask(key, REG_NOTIFY_CHANGE_LAST_SET), ERROR_SUCCESS);
  EXPECT_FALSE(notice.Came(0));
  ASSERT_EQ(own.SetValue(1), ERROR_SUCCESS);
  EXPECT_TRUE(notice.Came());
  notice.Reset();
  ASSERT_EQ(own.SetValue(2), ERROR_SUCCESS);
  EXPECT_FALSE(notice.Came(0));
}

TEST(WindowsTruth, TheRemovalOfAKeyIsToldToWhoeverWatchesTheOneAbove) {
  const OwnKey own(HKEY_CURRENT_USER);
  const UniqueRegKey above = own.OpenForNotice(own.Path());
  const Notice notice;
  ASSERT_EQ(notice.Ask(above, REG_NOTIFY_CHANGE_NAME), ERROR_SUCCESS);
  ASSERT_EQ(own.RemoveWatched(), ERROR_SUCCESS);
  EXPECT_TRUE(notice.Came());
}

TEST(WindowsTruth, AKeyThatIsMadeIsToldToWhoeverWatchesTheOneAbove) {
  const OwnKey own(HKEY_CURRENT_USER);
  const UniqueRegKey above = own.OpenForNotice(own.Path());
  const Notice notice;
  ASSERT_EQ(notice.Ask(above, REG_NOTIFY_CHANGE_NAME), ERROR_SUCCESS);
  UniqueRegKey made;
  ASSERT_EQ(own.Make(own.Path() + L"\\Made", KEY_READ, made), ERROR_SUCCESS);
  EXPECT_TRUE(notice.Came());
}

TEST(WindowsTruth, OneEventTellsOfTwoKeys) {
  const OwnKey own(HKEY_CURRENT_USER);
  const UniqueRegKey above = own.OpenForNotice(own.Path());
  const UniqueRegKey key = own.OpenForNotice(own.Path() + L"\\Watched");
  const Notice notice;
  ASSERT_EQ(notice.Ask(above, REG_NOTIFY_CHANGE_NAME), ERROR_SUCCESS);
  ASSERT_EQ(notice.Ask(key, REG_NOTIFY_CHANGE_LAST_SET), ERROR_SUCCESS);
  ASSERT_EQ(own.SetValue(1), ERROR_SUCCESS);
  EXPECT_TRUE(notice.Came());
  notice.Reset();
  ASSERT_EQ(own.RemoveWatched(), ERROR_SUCCESS);
  EXPECT_TRUE(notice.Came());
}

// So the library resets the event after it has closed what it watched, and before it asks anew.
TEST(WindowsTruth, AWatchedKeyThatIsClosedSignalsItsEventBeforeTheCallReturns) {
  const OwnKey own(HKEY_CURRENT_USER);
  UniqueRegKey key = own.OpenForNotice(own.Path() + L"\\Watched");
  const Notice notice;
  ASSERT_EQ(notice.Ask(key, REG_NOTIFY_CHANGE_LAST_SET), ERROR_SUCCESS);
  key.reset();
  EXPECT_TRUE(notice.Came(0));
  notice.Reset();
  ASSERT_EQ(own.SetValue(1), ERROR_SUCCESS);
  EXPECT_FALSE(notice.Came(0));
}

TEST(WindowsTruth, AKeyThatIsGoneCannotBeWatchedAndSaysSo) {
  const OwnKey own(HKEY_CURRENT_USER);
  const UniqueRegKey key = own.OpenForNotice(own.Path() + L"\\Watched");
  ASSERT_EQ(own.RemoveWatched(), ERROR_SUCCESS);
  const Notice notice;
  EXPECT_EQ(notice.Ask(key, REG_NOTIFY_CHANGE_LAST_SET), ERROR_KEY_DELETED);
}

// The rights with which the library makes its key.
TEST(WindowsTruth, AKeyOpenedForReadingAndWritingCanBeFlushed) {
  const OwnKey own(HKEY_CURRENT_USER);
  UniqueRegKey key;
  ASSERT_EQ(own.Make(own.Path() + L"\\Watched", KEY_READ | KEY_WRITE, key), ERROR_SUCCESS);
  EXPECT_EQ(::RegFlushKey(key.get()), ERROR_SUCCESS);
}

TEST(WindowsTruthElevated, AKeyOfTheMachineCanBeMadeWatchedWrittenAndFlushed) {
  const OwnKey own(HKEY_LOCAL_MACHINE);
  const UniqueRegKey watched = own.OpenForNotice(own.Path() + L"\\Watched");
  const Notice notice;
  ASSERT_EQ(notice.Ask(watched, REG_NOTIFY_CHANGE_LAST_SET), ERROR_SUCCESS);
  UniqueRegKey key;
  ASSERT_EQ(own.Make(own.Path() + L"\\Watched", KEY_READ | KEY_WRITE, key), ERROR_SUCCESS);
  ASSERT_EQ(own.SetValue(1), ERROR_SUCCESS);
  EXPECT_EQ(::RegFlushKey(key.get()), ERROR_SUCCESS);
  EXPECT_TRUE(notice.Came());
}

}  // namespace
