// The shipped file itself, and what the first call of an export does.
#include <windows.h>

#include <gmock/gmock.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Tests/Contract/ServiceTest.h"

namespace {

using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

class Exports : public ServiceTest {
 protected:
  template <typename T>
  const T* At(DWORD offset) const {
    return reinterpret_cast<const T*>(reinterpret_cast<const std::byte*>(Module()) + offset);
  }
  const IMAGE_OPTIONAL_HEADER& Header() const {
    return At<IMAGE_NT_HEADERS>(static_cast<DWORD>(At<IMAGE_DOS_HEADER>(0)->e_lfanew))->OptionalHeader;
  }

  std::wstring VersionText(const std::wstring& name) const {
    std::wstring path(MAX_PATH, L'\0');
    path.resize(::GetModuleFileNameW(Module(), path.data(), MAX_PATH));
    std::vector<std::byte> data(::GetFileVersionInfoSizeW(path.c_str(), nullptr));
    if (!::GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(data.size()), data.data())) return L"no version";
    void* text = nullptr;
    UINT size = 0;
    if (!::VerQueryValueW(data.data(), (L"\\StringFileInfo\\040904B0\\" + name).c_str(), &text, &size)) return L"none";
    return static_cast<const wchar_t*>(text);
  }
};

TEST_F(Exports, AreTwoFunctionsWithPlainNames) {
  const auto* table = At<IMAGE_EXPORT_DIRECTORY>(Header().DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress);
  std::vector<std::string> names;
  const auto* offsets = At<DWORD>(table->AddressOfNames);
  for (DWORD i = 0; i < table->NumberOfNames; ++i) names.emplace_back(At<char>(offsets[i]));
  EXPECT_THAT(names, UnorderedElementsAre("GetQeLaApi", "GetQeLaApiSmart"));
  EXPECT_EQ(table->NumberOfFunctions, 2u);
  EXPECT_STREQ(At<char>(table->Name), "QeLaLib.dll");
}

TEST_F(Exports, FileDescriptionNamesTheLibrary) {
  EXPECT_EQ(VersionText(L"FileDescription"), L"Firewall Location Awareness Library");
  EXPECT_EQ(VersionText(L"OriginalFilename"), L"QeLaLib.dll");
}

TEST_F(Exports, FileAsksForAddressRandomisationAndDataExecutionPrevention) {
  EXPECT_TRUE(Header().DllCharacteristics & IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE);
  EXPECT_TRUE(Header().DllCharacteristics & IMAGE_DLLCHARACTERISTICS_NX_COMPAT);
  EXPECT_TRUE(Header().DllCharacteristics & 0x20) << "high-entropy addresses";
}

TEST_F(Exports, LogLibraryIsAPlainImport) {
  bool found = false;
  for (const auto* import =
           At<IMAGE_IMPORT_DESCRIPTOR>(Header().DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);
       import->Name != 0; ++import)
    found = found || std::string(At<char>(import->Name)) == "LogLib.dll";
  EXPECT_TRUE(found);
  EXPECT_EQ(Header().DataDirectory[IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT].Size, 0u);
}

TEST_F(Exports, LoadingTheLibraryAloneDoesNothing) {
  EXPECT_TRUE(m_registry.Calls().empty());
  EXPECT_EQ(m_adapters.CallCount(), 0u);
  EXPECT_TRUE(m_log.Events().empty());
}

TEST_F(Exports, FirstCallLoadsTheStoredSetAndThenCalculates) {
  m_registry.Put(PackedSet({{.id = "A"}}));
  std::size_t readsBeforeSnapshot = 0;
  m_adapters.OnCall([&] { readsBeforeSnapshot = m_registry.Count("RegQueryValueExW"); });
  _IQeLaApi* const service = m_library.Api();

  EXPECT_EQ(readsBeforeSnapshot, 2u);
  EXPECT_EQ(m_adapters.CallCount(), 1u);
  EXPECT_EQ(StoredIds(*service), Ids{L"A"});
  EXPECT_EQ(CurrentIds(*service), Ids{L"A"});
  EXPECT_EQ(m_registry.Count("RegSetValueExW"), 0u);
}

TEST_F(Exports, FirstCallLogsTheReport) {
  m_library.Api();
  const std::vector<std::wstring> texts = m_log.Texts();
  ASSERT_EQ(texts.size(), 5u);
  EXPECT_EQ(texts[0], L"Calculating current locations...");
  EXPECT_EQ(texts[1], L"GetAdaptersAddresses succeeds, the return value is : 0");
  EXPECT_EQ(texts[2], L"Adapters List :");
  EXPECT_THAT(texts[3], StartsWith(L"Adapter properties:\n\n\tInterface Index:5\n\tDescription :Office"));
  EXPECT_EQ(texts[4], L"//---------------------------------------------\n");
}

TEST_F(Exports, LaterCallsDoNotLoadAgain) {
  m_library.Api();
  m_library.SmartApi();
  m_registry.ClearCalls();
  m_adapters.ClearCalls();
  m_library.Api();
  m_library.SmartApi();
  EXPECT_TRUE(m_registry.Calls().empty());
  EXPECT_EQ(m_adapters.CallCount(), 0u);
}

TEST_F(Exports, LogEventsCarryTheirPlaceInTheProduct) {
  m_library.Api();
  ASSERT_FALSE(m_log.Events().empty());
  for (const LoggedEvent& event : m_log.Events())
    ExpectFirewallEvent(event, 8, StartsWith("FwClient/Service/QeLaLib/"));
}

}  // namespace
