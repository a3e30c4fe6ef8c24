// What the host's libraries do for a host in C: log, credentials, errors.
#include <winsock2.h>
#include <windows.h>
#include <BLFramework.h>
#include <BLFrameworkHost.h>
#include <KzVariantExport.h>
#include <LogLib.h>

#include <algorithm>
#include <cwchar>
#include <initializer_list>
#include <memory>
#include <string>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Kit/KitTest.h"
#include "Tests/Support/OtherThread.h"

namespace {

void Log(int severity, const wchar_t* text) {
  LogUtils::LogEvent("file.cpp", 7, severity, "source", getLogManager(), 2, 0)("component", L"%s", text);
}

struct Logged {
  std::vector<std::wstring> texts;
  qela_log_record last{};

  static void QELA_CALL OnRecord(const qela_log_record* record, void* context) {
    auto& self = *static_cast<Logged*>(context);
    self.texts.emplace_back(record->text);
    self.last = *record;
  }
};

class KitLog : public testing::Test {
 protected:
  ~KitLog() override { EXPECT_EQ(qela_set_log_callback(nullptr, nullptr, QELA_LOG_ALL), QELA_STATUS_OK); }
};

TEST_F(KitLog, EventsReachTheCallbackWithItsContext) {
  Logged logged;
  ASSERT_EQ(qela_set_log_callback(&Logged::OnRecord, &logged, QELA_LOG_ALL), QELA_STATUS_OK);
  Log(8, L"B\u00fcro \u6771");
  ASSERT_EQ(logged.texts, Ids{L"B\u00fcro \u6771"});
  EXPECT_EQ(logged.last.size, sizeof(qela_log_record));
  EXPECT_EQ(logged.last.severity, 8);
  EXPECT_EQ(logged.last.line, 7);
  EXPECT_STREQ(logged.last.file, "file.cpp");
  EXPECT_STREQ(logged.last.source, "source");
  EXPECT_STREQ(logged.last.component, "component");
  ASSERT_EQ(qela_set_log_callback(nullptr, nullptr, QELA_LOG_ALL), QELA_STATUS_OK);
  Log(8, L"nobody hears this");
  EXPECT_EQ(logged.texts.size(), 1u);
}

TEST_F(KitLog, TheLevelKeepsLighterEventsAway) {
  Logged logged;
  ASSERT_EQ(qela_set_log_callback(&Logged::OnRecord, &logged, QELA_LOG_ERRORS), QELA_STATUS_OK);
  Log(8, L"information");
  Log(3, L"error");
  EXPECT_EQ(logged.texts, Ids{L"error"});
  EXPECT_EQ(qela_set_log_callback(&Logged::OnRecord, &logged, static_cast<qela_log_level>(5)),
            QELA_STATUS_INVALID_ARGUMENT);
}

TEST_F(KitLog, ACallbackMayLogAndTakeItselfAway) {
  static int calls;
  calls = 0;
  const qela_log_callback callback = +[](const qela_log_record*, void*) {
    ++calls;
    Log(8, L"inside");
    EXPECT_EQ(qela_set_log_callback(nullptr, nullptr, QELA_LOG_ALL), QELA_STATUS_OK);
  };
  ASSERT_EQ(qela_set_log_callback(callback, nullptr, QELA_LOG_ALL), QELA_STATUS_OK);
  Log(8, L"outside");
  EXPECT_EQ(calls, 1);
}

// In place of the functions by which a module writes.
std::string g_standardError;
std::wstring g_debugger;
BOOL WINAPI CatchWrite(HANDLE, const void* bytes, DWORD size, DWORD* written, OVERLAPPED*) {
  g_standardError.append(static_cast<const char*>(bytes), size);
  *written = size;
  return TRUE;
}
void WINAPI CatchDebugger(const wchar_t* text) { g_debugger += text; }

TEST_F(KitLog, ACallbackTakesThePlaceOfStandardError) {
  const ImportPatch write(::GetModuleHandleW(L"LogLib.dll"), "WriteFile", &CatchWrite);
  g_standardError.clear();
  Logged logged;
  ASSERT_EQ(qela_set_log_callback(&Logged::OnRecord, &logged, QELA_LOG_ERRORS), QELA_STATUS_OK);
  Log(8, L"kept from both");
  EXPECT_EQ(g_standardError, "");
  ASSERT_EQ(qela_set_log_callback(nullptr, nullptr, QELA_LOG_ALL), QELA_STATUS_OK);
  Log(8, L"shown");
  EXPECT_TRUE(g_standardError.ends_with("\tshown\n")) << g_standardError;
}

TEST_F(KitLog, WithoutStandardErrorTheDebuggerIsTold) {
  const ImportPatch output(::GetModuleHandleW(L"LogLib.dll"), "OutputDebugStringW", &CatchDebugger);
  g_debugger.clear();
  const HANDLE standardError = ::GetStdHandle(STD_ERROR_HANDLE);
  ::SetStdHandle(STD_ERROR_HANDLE, nullptr);
  Log(8, L"B\u00fcro \u6771");
  ::SetStdHandle(STD_ERROR_HANDLE, standardError);
  EXPECT_TRUE(g_debugger.ends_with(L"\tsource\tcomponent\tfile.cpp:7\tB\u00fcro \u6771\n"));
}

// A product's own library, which knows no callbacks of ours.
FARPROC WINAPI FindNothing(HMODULE, const char*) { return nullptr; }
HMODULE WINAPI NoModule(const wchar_t*) { return nullptr; }

TEST(KitHostLibraries, OthersInTheirPlaceAreNotSupported) {
  const HMODULE kit = ::GetModuleHandleW(L"QeLaC.dll");
  {
    const ImportPatch patch(kit, "GetProcAddress", &FindNothing);
    EXPECT_EQ(qela_set_log_callback(nullptr, nullptr, QELA_LOG_ALL), QELA_STATUS_NOT_SUPPORTED);
    EXPECT_EQ(qela_set_credentials_callback(nullptr, nullptr), QELA_STATUS_NOT_SUPPORTED);
  }
  const ImportPatch patch(kit, "GetModuleHandleW", &NoModule);
  EXPECT_EQ(qela_set_log_callback(nullptr, nullptr, QELA_LOG_ALL), QELA_STATUS_NOT_SUPPORTED);
  EXPECT_EQ(qela_set_credentials_callback(nullptr, nullptr), QELA_STATUS_NOT_SUPPORTED);
}

// ---- credentials ----

class KitCredentials : public testing::Test {
 protected:
  ~KitCredentials() override {
    EXPECT_EQ(qela_set_credentials_callback(nullptr, nullptr), QELA_STATUS_OK);
    const BLFrameworkHost::InUse inUse = BLFrameworkHost::inUse();
    EXPECT_EQ(inUse.initializations + inUse.objectHandles + inUse.blocks, 0u);
  }

  // The framework's answer as the library asks for it: name, text, name, text.
  static Ids Answer() {
    EXPECT_EQ(::BLFrameworkInit(), 0);
    BLObjectHandle object = nullptr;
    EXPECT_EQ(::BLGetObjectHandle("RVX", 0, 0, &object), 0);
    Ids texts;
    {
      const AutoPtr argument(KzvString(L"proxyCredentials", nullptr, 0).BuildNewKzVariant(&::BLAlloc), &::BLFree);
      KzVariant* answer = nullptr;
      EXPECT_EQ(::BLInvokeMethod(object, "proxyCredentials", argument.Get(), &answer), 0);
      const AutoPtr owner(answer, &::BLFree);
      const KzvView view(answer);
      for (std::uint32_t i = 0; i < view.List()->count; ++i) {
        texts.emplace_back(view[i].Name());
        texts.emplace_back(view[i].String());
      }
    }
    ::BLReleaseObjectHandle(object);
    ::BLFrameworkCleanUp();
    return texts;
  }

  static qela_status QELA_CALL Give(qela_credentials* credentials, void* context) {
    EXPECT_EQ(credentials->size, sizeof(qela_credentials));
    EXPECT_EQ(credentials->user_name[0], L'\0');
    std::wcscpy(credentials->user_name, L"user");
    std::wcscpy(credentials->password, static_cast<const wchar_t*>(context));
    return QELA_STATUS_OK;
  }
};

TEST_F(KitCredentials, AreWhatTheCallbackGives) {
  wchar_t password[] = L"secret";
  EXPECT_EQ(Answer(), Ids{});
  ASSERT_EQ(qela_set_credentials_callback(&Give, password), QELA_STATUS_OK);
  EXPECT_EQ(Answer(), (Ids{L"userName", L"user", L"password", L"secret"}));
  ASSERT_EQ(qela_set_credentials_callback(nullptr, nullptr), QELA_STATUS_OK);
  EXPECT_EQ(Answer(), Ids{});
}

TEST_F(KitCredentials, AreAskedForByTheirNamesAndWithAHandleAlone) {
  BLObjectHandle object = nullptr;
  EXPECT_NE(::BLGetObjectHandle("RVX", 0, 0, &object), 0) << "before the framework is initialized";
  ASSERT_EQ(::BLFrameworkInit(), 0);
  EXPECT_NE(::BLGetObjectHandle(nullptr, 0, 0, &object), 0);
  EXPECT_NE(::BLGetObjectHandle("RVY", 0, 0, &object), 0);
  ASSERT_EQ(::BLGetObjectHandle("RVX", 0, 0, &object), 0);
  const AutoPtr argument(KzvString(L"proxyCredentials", nullptr, 0).BuildNewKzVariant(&::BLAlloc), &::BLFree);
  const AutoPtr other(KzvString(L"proxy", nullptr, 0).BuildNewKzVariant(&::BLAlloc), &::BLFree);
  const AutoPtr nothing(KzvString(nullptr, nullptr, 0).BuildNewKzVariant(&::BLAlloc), &::BLFree);
  KzVariant* answer = nullptr;
  EXPECT_NE(::BLInvokeMethod(nullptr, "proxyCredentials", argument.Get(), &answer), 0);
  EXPECT_NE(::BLInvokeMethod(object, "proxy", argument.Get(), &answer), 0);
  for (const KzVariant* const wrong : std::initializer_list<const KzVariant*>{nullptr, other.Get(), nothing.Get()})
    EXPECT_NE(::BLInvokeMethod(object, "proxyCredentials", wrong, &answer), 0);
  EXPECT_EQ(answer, nullptr);
  ::BLReleaseObjectHandle(object);
  ::BLFrameworkCleanUp();
}

TEST_F(KitCredentials, AreNoneWhenTheCallbackRefuses) {
  const qela_credentials_callback refuse = +[](qela_credentials* credentials, void*) {
    std::wcscpy(credentials->user_name, L"user");
    return QELA_STATUS_NOT_FOUND;
  };
  ASSERT_EQ(qela_set_credentials_callback(refuse, nullptr), QELA_STATUS_OK);
  EXPECT_EQ(Answer(), Ids{});
}

TEST_F(KitCredentials, ThatFillTheirRoomAreCutAtItsEnd) {
  const qela_credentials_callback fill = +[](qela_credentials* credentials, void*) {
    std::fill(std::begin(credentials->user_name), std::end(credentials->user_name), L'u');
    std::fill(std::begin(credentials->password), std::end(credentials->password), L'p');
    return QELA_STATUS_OK;
  };
  ASSERT_EQ(qela_set_credentials_callback(fill, nullptr), QELA_STATUS_OK);
  const Ids texts = Answer();
  ASSERT_EQ(texts.size(), 4u);
  EXPECT_EQ(texts[1], std::wstring(QELA_USER_NAME_UNITS - 1, L'u'));
  EXPECT_EQ(texts[3], std::wstring(QELA_PASSWORD_UNITS - 1, L'p'));
}

// ---- errors ----

class KitErrors : public KitTest {
 protected:
  ~KitErrors() override { EXPECT_EQ(qela_set_error_callback(nullptr, nullptr), QELA_STATUS_OK); }

  static void QELA_CALL OnError(const char* text, void* context) {
    static_cast<std::vector<std::string>*>(context)->emplace_back(text);
  }
};

TEST_F(KitErrors, AreToldInALine) {
  std::vector<std::string> told;
  ASSERT_EQ(qela_set_error_callback(&OnError, &told), QELA_STATUS_OK);
  qela_location* const location = NewLocation(L"id");
  const std::uint8_t bad = 0xc1;
  EXPECT_EQ(qela_location_from_bytes(location, &bad, 1), QELA_STATUS_BAD_DATA);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("CQeLocation"), std::string::npos) << told[0];
  EXPECT_EQ(told[0].find('\n'), std::string::npos);
  ASSERT_EQ(qela_set_error_callback(nullptr, nullptr), QELA_STATUS_OK);
  EXPECT_EQ(qela_location_from_bytes(location, &bad, 1), QELA_STATUS_BAD_DATA);
  EXPECT_EQ(told.size(), 1u);
}

TEST_F(KitErrors, MayBeAnsweredWithCalls) {
  struct Context {
    qela_location* location;
    int calls;
  } context{NewLocation(L"id"), 0};
  const qela_error_callback callBack = +[](const char*, void* given) {
    auto& self = *static_cast<Context*>(given);
    ++self.calls;
    const std::uint8_t bad = 0xc1;
    EXPECT_EQ(qela_location_from_bytes(self.location, &bad, 1), QELA_STATUS_BAD_DATA);
    EXPECT_EQ(qela_set_error_callback(nullptr, nullptr), QELA_STATUS_OK);
  };
  ASSERT_EQ(qela_set_error_callback(callBack, &context), QELA_STATUS_OK);
  const std::uint8_t bad = 0xc1;
  EXPECT_EQ(qela_location_from_bytes(context.location, &bad, 1), QELA_STATUS_BAD_DATA);
  EXPECT_EQ(context.calls, 1);
}

// The log is written under the service's lock, on the thread that calculates.
TEST_F(KitErrors, ALogCallbackMayUseAndCloseTheService) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Open();
  static qela_service* service;
  service = m_service;
  const qela_log_callback callback = +[](const qela_log_record*, void*) {
    qela_locations* locations = nullptr;
    EXPECT_EQ(qela_get_locations(service, &locations), QELA_STATUS_OK);
    EXPECT_EQ(qela_locations_release(locations), QELA_STATUS_OK);
    EXPECT_EQ(qela_set_log_callback(nullptr, nullptr, QELA_LOG_ALL), QELA_STATUS_OK);
    EXPECT_EQ(qela_close(service), QELA_STATUS_OK);
  };
  ASSERT_EQ(qela_set_log_callback(callback, nullptr, QELA_LOG_ALL), QELA_STATUS_OK);
  EXPECT_EQ(qela_save(service), QELA_STATUS_OK);
  EXPECT_EQ(qela_save(service), QELA_STATUS_INVALID_HANDLE);
  Forget();
}

}  // namespace
