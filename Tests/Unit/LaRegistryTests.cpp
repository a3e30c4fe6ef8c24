#include "FwClient/Service/QeLaLib/LaRegistry.h"

#include <windows.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"

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

// A registry of one value that answers by script and keeps account of what it is asked.
class LaRegistryCalls : public testing::Test {
 protected:
  struct Query {
    LSTATUS status = ERROR_SUCCESS;
    DWORD type = REG_BINARY;
    Bytes data{};
  };

  LaRegistryCalls() { s_self = this; }
  ~LaRegistryCalls() override {
    // Whatever a test does: what was opened is closed once.
    for (const auto& [key, open] : m_open) EXPECT_EQ(open, 0) << key;
    s_self = nullptr;
  }

  // Scripts.
  LSTATUS m_openStatus = ERROR_SUCCESS;
  LSTATUS m_createStatus = ERROR_SUCCESS;
  LSTATUS m_setStatus = ERROR_SUCCESS;
  LSTATUS m_flushStatus = ERROR_SUCCESS;
  std::vector<Query> m_queries;

  // What was asked, one word a call with its arguments.
  std::vector<std::wstring> m_calls;
  Bytes m_written;

  Bytes m_bytes = {7};

  unsigned long Read() { return ReadLaValue(L"Some\\Key", L"value", m_bytes); }
  unsigned long Write() { return WriteLaValue(L"Some\\Key", L"value", {1, 2, 3}); }

 private:
  static std::wstring Hex(DWORD number) {
    wchar_t text[20];
    ::wsprintfW(text, L"%x", number);
    return text;
  }
  static const wchar_t* NameOf(HKEY hive) { return hive == HKEY_LOCAL_MACHINE ? L"HKLM\\" : L"?\\"; }
  HKEY Hand() {
    const HKEY key = reinterpret_cast<HKEY>(std::uintptr_t{0x1000} + m_open.size() * 16);
    m_open[key] = 1;
    return key;
  }

  static LSTATUS WINAPI Open(HKEY hive, const wchar_t* path, DWORD options, REGSAM access, HKEY* key) {
    s_self->m_calls.push_back(std::wstring(L"open ") + NameOf(hive) + path + L" " + Hex(options) + L" " + Hex(access));
    if (s_self->m_openStatus == ERROR_SUCCESS) *key = s_self->Hand();
    return s_self->m_openStatus;
  }
  static LSTATUS WINAPI Create(HKEY hive, const wchar_t* path, DWORD reserved, wchar_t* keyClass, DWORD options,
                               REGSAM access, const SECURITY_ATTRIBUTES* security, HKEY* key, DWORD*) {
    EXPECT_EQ(reserved, 0u);
    EXPECT_EQ(keyClass, nullptr);
    EXPECT_EQ(security, nullptr);
    s_self->m_calls.push_back(std::wstring(L"create ") + NameOf(hive) + path + L" " + Hex(options) + L" " +
                              Hex(access));
    if (s_self->m_createStatus == ERROR_SUCCESS) *key = s_self->Hand();
    return s_self->m_createStatus;
  }
  static LSTATUS WINAPI QueryValue(HKEY key, const wchar_t* name, DWORD*, DWORD* type, BYTE* data, DWORD* size) {
    EXPECT_EQ(s_self->m_open[key], 1);
    s_self->m_calls.push_back(std::wstring(data != nullptr ? L"query " : L"size ") + name);
    if (s_self->m_queries.empty()) {
      ADD_FAILURE() << "a query too many";
      return ERROR_GEN_FAILURE;
    }
    const Query query = s_self->m_queries.front();
    s_self->m_queries.erase(s_self->m_queries.begin());
    if (query.status != ERROR_SUCCESS) return query.status;
    *type = query.type;
    const DWORD room = *size;
    *size = static_cast<DWORD>(query.data.size());
    if (data == nullptr) return ERROR_SUCCESS;
    if (room < *size) return ERROR_MORE_DATA;
    std::memcpy(data, query.data.data(), query.data.size());
    return ERROR_SUCCESS;
  }
  static LSTATUS WINAPI SetValue(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data,
                                 DWORD size) {
    EXPECT_EQ(s_self->m_open[key], 1);
    EXPECT_EQ(reserved, 0u);
    s_self->m_calls.push_back(std::wstring(L"set ") + name + L" " + Hex(type));
    s_self->m_written.assign(data, data + size);
    return s_self->m_setStatus;
  }
  static LSTATUS WINAPI Flush(HKEY key) {
    EXPECT_EQ(s_self->m_open[key], 1);
    s_self->m_calls.emplace_back(L"flush");
    return s_self->m_flushStatus;
  }
  static LSTATUS WINAPI Close(HKEY key) {
    EXPECT_EQ(s_self->m_open[key]--, 1) << "closed twice, or never opened";
    s_self->m_calls.emplace_back(L"close");
    return ERROR_SUCCESS;
  }

  static LaRegistryCalls* s_self;
  std::map<HKEY, int> m_open;
  const HMODULE m_module = ThisProgram();
  const ImportPatch m_openPatch{m_module, "RegOpenKeyExW", &Open};
  const ImportPatch m_createPatch{m_module, "RegCreateKeyExW", &Create};
  const ImportPatch m_queryPatch{m_module, "RegQueryValueExW", &QueryValue};
  const ImportPatch m_setPatch{m_module, "RegSetValueExW", &SetValue};
  const ImportPatch m_flushPatch{m_module, "RegFlushKey", &Flush};
  const ImportPatch m_closePatch{m_module, "RegCloseKey", &Close};
};

LaRegistryCalls* LaRegistryCalls::s_self;

using Calls = std::vector<std::wstring>;
// Access masks: KEY_READ 20019, KEY_ALL_ACCESS f003f, KEY_READ | KEY_WRITE 2001f.
constexpr wchar_t kOpenForReading[] = L"open HKLM\\Some\\Key 0 20019";
constexpr wchar_t kOpenForWriting[] = L"open HKLM\\Some\\Key 0 f003f";
constexpr wchar_t kCreate[] = L"create HKLM\\Some\\Key 0 2001f";
constexpr wchar_t kSet[] = L"set value 3";

TEST_F(LaRegistryCalls, ReadingAsksForTheSizeAndThenForTheBytes) {
  m_queries = {{.data = {1, 2, 3}}, {.data = {1, 2, 3}}};
  EXPECT_EQ(Read(), ERROR_SUCCESS);
  EXPECT_EQ(m_bytes, (Bytes{1, 2, 3}));
  EXPECT_EQ(m_calls, (Calls{kOpenForReading, L"size value", L"query value", L"close"}));
}

TEST_F(LaRegistryCalls, ReadingReturnsTheErrorOfOpening) {
  m_openStatus = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Read(), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(m_bytes, Bytes{7});
  EXPECT_EQ(m_calls, Calls{kOpenForReading});
}

TEST_F(LaRegistryCalls, ReadingReturnsTheErrorOfEitherQuery) {
  m_queries = {{.status = ERROR_KEY_DELETED}};
  EXPECT_EQ(Read(), DWORD{ERROR_KEY_DELETED});
  m_queries = {{.data = {1}}, {.status = ERROR_FILE_NOT_FOUND}};
  EXPECT_EQ(Read(), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(m_bytes, Bytes{7});
}

TEST_F(LaRegistryCalls, ReadingRefusesAnotherTypeAtTheFirstQuery) {
  m_queries = {{.type = REG_SZ, .data = {1}}};
  EXPECT_EQ(Read(), DWORD{ERROR_INVALID_DATA});
  EXPECT_EQ(m_bytes, Bytes{7});
  EXPECT_EQ(m_calls, (Calls{kOpenForReading, L"size value", L"close"}));
}

TEST_F(LaRegistryCalls, ReadingRefusesATypeThatChangesBetweenTheQueries) {
  m_queries = {{.data = {1}}, {.type = REG_DWORD, .data = {2}}};
  EXPECT_EQ(Read(), DWORD{ERROR_INVALID_DATA});
  EXPECT_EQ(m_bytes, Bytes{7});
}

TEST_F(LaRegistryCalls, ReadingFailsWhenTheValueGrowsBetweenTheQueries) {
  m_queries = {{.data = {1}}, {.data = {1, 2}}};
  EXPECT_EQ(Read(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(m_bytes, Bytes{7});
}

// Without a byte to read into, the second query is one for the size again, and succeeds.
TEST_F(LaRegistryCalls, ReadingFailsWhenAnEmptyValueGrowsBetweenTheQueries) {
  m_queries = {{.data = {}}, {.data = {1, 2}}};
  EXPECT_EQ(Read(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(m_bytes, Bytes{7});
}

TEST_F(LaRegistryCalls, ReadingTakesAValueThatShrinksBetweenTheQueries) {
  m_queries = {{.data = {1, 2, 3}}, {.data = {4}}};
  EXPECT_EQ(Read(), ERROR_SUCCESS);
  EXPECT_EQ(m_bytes, Bytes{4});
}

TEST_F(LaRegistryCalls, ReadingAnEmptyValueGivesNoBytes) {
  m_queries = {{.data = {}}, {.data = {}}};
  EXPECT_EQ(Read(), ERROR_SUCCESS);
  EXPECT_TRUE(m_bytes.empty());
}

TEST_F(LaRegistryCalls, WritingOpensSetsAndFlushes) {
  EXPECT_EQ(Write(), ERROR_SUCCESS);
  EXPECT_EQ(m_calls, (Calls{kOpenForWriting, kSet, L"flush", L"close"}));
  EXPECT_EQ(m_written, (Bytes{1, 2, 3}));
}

TEST_F(LaRegistryCalls, WritingCreatesTheKeyWhenItCannotBeOpened) {
  for (const LSTATUS status : {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED}) {
    m_openStatus = status;
    m_calls.clear();
    EXPECT_EQ(Write(), ERROR_SUCCESS);
    EXPECT_EQ(m_calls, (Calls{kOpenForWriting, kCreate, kSet, L"flush", L"close"}));
  }
}

TEST_F(LaRegistryCalls, WritingReturnsTheErrorOfCreating) {
  m_openStatus = ERROR_FILE_NOT_FOUND;
  m_createStatus = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Write(), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(m_calls, (Calls{kOpenForWriting, kCreate}));
}

TEST_F(LaRegistryCalls, WritingDoesNotFlushWhatItCouldNotSet) {
  m_setStatus = ERROR_NO_SYSTEM_RESOURCES;
  EXPECT_EQ(Write(), DWORD{ERROR_NO_SYSTEM_RESOURCES});
  EXPECT_EQ(m_calls, (Calls{kOpenForWriting, kSet, L"close"}));
}

TEST_F(LaRegistryCalls, WritingReturnsTheResultOfFlushing) {
  m_flushStatus = ERROR_REGISTRY_IO_FAILED;
  EXPECT_EQ(Write(), DWORD{ERROR_REGISTRY_IO_FAILED});
  EXPECT_EQ(m_calls, (Calls{kOpenForWriting, kSet, L"flush", L"close"}));
}

}  // namespace
