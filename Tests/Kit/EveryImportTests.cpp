// Every function that the kit's four modules import fails, at every call: the host gets a status, nothing is left
// behind, and the next call works.
#include <winsock2.h>
#include <windows.h>
#include <BLFramework.h>
#include <BLFrameworkCallback.h>
#include <BLFrameworkHost.h>
#include <KzVariantExport.h>
#include <KzVariantHost.h>
#include <LogLib.h>
#include <LogLibCallback.h>
#include <LogLibHost.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <new>
#include <set>
#include <source_location>

#include "ScriptedWindows/ImportTable/HandleWatch.h"
#include "ScriptedWindows/ImportTable/ImportFaults.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/UniqueName.h"
#include "Tests/Kit/KitTest.h"
#include "Tests/Support/FailEveryImport.h"
#include "Tests/Support/ImportFailures.h"
#include "Tests/Support/LocationBlob.h"
#include "Tests/Support/ModuleCopy.h"
#include "Tests/Support/OtherThread.h"
#include "Tests/Support/ProcessCounts.h"

namespace {

// What a host is told in a run.
class Judge {
 public:
  explicit Judge(const Attempt& attempt) : m_attempt(attempt) {}

  // The status must be `expected`; where something fails it may also be what the function answers to that: in each of
  // them a lack of memory, and what else is named. Returns whether the function did what it is for.
  bool Answers(qela_status expected, qela_status status, std::initializer_list<qela_status> refusals = {},
               std::source_location where = std::source_location::current()) const {
    if (status == expected) return true;
    const bool named =
        status == QELA_STATUS_OUT_OF_MEMORY || std::find(refusals.begin(), refusals.end(), status) != refusals.end();
    if (!m_attempt.Fails() || !named)
      ADD_FAILURE_AT(where.file_name(), static_cast<int>(where.line())) << qela_status_text(status);
    return false;
  }
  bool Does(qela_status status, std::initializer_list<qela_status> refusals = {},
            std::source_location where = std::source_location::current()) const {
    return Answers(QELA_STATUS_OK, status, refusals, where);
  }
  // The same for a function that hands out a handle; the handle is null where it does not.
  template <typename Handle>
  bool Gives(qela_status status, Handle* const& handle, std::initializer_list<qela_status> refusals = {},
             std::source_location where = std::source_location::current()) const {
    if ((status == QELA_STATUS_OK) != (handle != nullptr))
      ADD_FAILURE_AT(where.file_name(), static_cast<int>(where.line())) << "a handle that is not what the status tells";
    return Does(status, refusals, where);
  }

 private:
  const Attempt& m_attempt;
};

void QELA_CALL IgnoreError(const char*, void*) {}
void QELA_CALL IgnoreRecord(const qela_log_record*, void*) {}
qela_status QELA_CALL GiveCredentials(qela_credentials* credentials, void*) {
  std::wcscpy(credentials->user_name, L"user");
  std::wcscpy(credentials->password, L"secret");
  return QELA_STATUS_OK;
}

constexpr wchar_t kId[] = L"an identifier that needs memory of its own";

// For what no event tells of, within 10 seconds.
void Await(const std::function<bool()>& happens) {
  const ULONGLONG start = ::GetTickCount64();
  while (!happens() && ::GetTickCount64() - start < 10'000) ::Sleep(1);
  EXPECT_TRUE(happens());
}

class KitEveryImport : public KitTest {
 protected:
  // ---- what belongs to no service ----

  static void UseTheProcess(const Judge& judge) {
    qela_versions versions{};
    versions.size = sizeof versions;
    judge.Does(qela_get_versions(&versions), {QELA_STATUS_SYSTEM_ERROR});
    versions.size = 0;
    judge.Answers(QELA_STATUS_INVALID_SIZE, qela_get_versions(&versions));
    judge.Does(qela_set_error_callback(&IgnoreError, nullptr));
    for (const bool set : {true, false}) {
      judge.Does(qela_set_log_callback(set ? &IgnoreRecord : nullptr, nullptr, QELA_LOG_ALL),
                 {QELA_STATUS_NOT_SUPPORTED});
      judge.Does(qela_set_credentials_callback(set ? &GiveCredentials : nullptr, nullptr), {QELA_STATUS_NOT_SUPPORTED});
    }
  }

  // ---- a service without discovery ----

  static void UseLocation(const Judge& judge, qela_service* service, qela_location* location) {
    wchar_t text[200];
    std::uint8_t bytes[2000];
    std::uint32_t length = 200;
    std::int32_t flag = 0;
    judge.Does(qela_location_set_id(location, kId));
    judge.Does(qela_location_set_name(location, L"a name that needs memory of its own"));
    judge.Does(qela_location_set_note(location, L"a note that needs memory of its own"));
    judge.Does(qela_location_get_id(location, text, &length));
    judge.Does(qela_location_get_name(location, text, &(length = 200)));
    judge.Does(qela_location_get_note(location, text, &(length = 200)));
    judge.Does(qela_location_set_enabled(location, 1));
    judge.Does(qela_location_is_enabled(location, &flag));
    judge.Does(qela_location_clear_criteria(location));
    const bool added =
        judge.Does(qela_location_add_criterion(location, QELA_CRITERION_DEFAULT_GATEWAY, kOfficeGateway));
    judge.Answers(QELA_STATUS_NOT_FOUND,
                  qela_location_remove_criterion(location, QELA_CRITERION_DNS_SUFFIX, L"no such suffix of a domain"));
    const std::uint32_t indexes[] = {1, 2, 3};
    std::uint32_t room[3];
    judge.Does(qela_location_set_adapters(location, indexes, 3));
    judge.Does(qela_location_get_adapters(location, room, &(length = 3)));
    qela_criteria* criteria = nullptr;
    if (judge.Gives(qela_location_get_criteria(location, &criteria), criteria)) {
      qela_criterion_kind kind{};
      judge.Does(qela_criteria_count(criteria, &length));
      if (added) {
        judge.Does(qela_criteria_at(criteria, 0, &kind, text, &(length = 200)));
        judge.Does(qela_criteria_text(criteria, QELA_CRITERION_DEFAULT_GATEWAY, 0, text, &(length = 200)));
      }
      judge.Does(qela_criteria_flag(criteria, QELA_CRITERION_ZELT_REACHABLE, &flag));
      length = 2000;
      if (judge.Does(qela_criteria_to_bytes(criteria, bytes, &length)))
        judge.Does(qela_criteria_from_bytes(criteria, bytes, length));
      EXPECT_EQ(qela_criteria_release(criteria), QELA_STATUS_OK);
    }
    length = 2000;
    if (judge.Does(qela_location_to_bytes(location, bytes, &length)))
      judge.Does(qela_location_from_bytes(location, bytes, length));
    judge.Answers(QELA_STATUS_BAD_DATA, qela_location_from_bytes(location, "\xc1", 1));
    judge.Answers(QELA_STATUS_NOT_FOUND, qela_update_location(service, location));
    if (judge.Does(qela_add_location(service, location))) {
      judge.Answers(QELA_STATUS_DUPLICATE, qela_add_location(service, location));
      judge.Does(qela_update_location(service, location));
    }
  }

  static void UseCollections(const Judge& judge, qela_service* service) {
    std::uint8_t bytes[2000];
    std::uint32_t length = 2000;
    qela_location* location = nullptr;
    qela_locations* all = nullptr;
    qela_locations* current = nullptr;
    qela_locations* made = nullptr;
    if (judge.Gives(qela_get_location(service, kId, &location), location, {QELA_STATUS_NOT_FOUND})) {
      EXPECT_EQ(qela_location_release(location), QELA_STATUS_OK);
    }
    if (judge.Gives(qela_get_locations(service, &all), all)) {
      judge.Does(qela_locations_count(all, &length));
      if (judge.Gives(qela_locations_at(all, 0, &location), location, {QELA_STATUS_NOT_FOUND})) {
        EXPECT_EQ(qela_location_release(location), QELA_STATUS_OK);
      }
      judge.Answers(QELA_STATUS_NOT_FOUND, qela_locations_find(all, L"an identifier that nobody has given", &location));
      length = 2000;
      if (judge.Does(qela_locations_to_bytes(all, bytes, &length)) &&
          judge.Gives(qela_create_locations(service, &made), made)) {
        judge.Does(qela_locations_from_bytes(made, bytes, length));
        EXPECT_EQ(qela_locations_release(made), QELA_STATUS_OK);
      }
      EXPECT_EQ(qela_locations_release(all), QELA_STATUS_OK);
    }
    if (judge.Gives(qela_get_current_locations(service, &current), current)) {
      EXPECT_EQ(qela_locations_release(current), QELA_STATUS_OK);
    }
  }

  static void UseAddresses(const Judge& judge, qela_service* service) {
    const wchar_t* const addresses[] = {L"10.0.0.1", L"an address that needs memory of its own"};
    const std::uint32_t indexes[] = {1, 2, 3};
    std::int32_t matches = 0;
    wchar_t text[50];
    std::uint32_t length = 50;
    judge.Does(qela_match_addresses(service, addresses, 2, QELA_ADDRESS_SINGLE, L"10.0.0.1", L"", &matches));
    judge.Does(qela_match_adapter_addresses(service, QELA_ADDRESS_SUBNET, L"10.0.0.0/8", L"", &matches));
    judge.Does(qela_is_adapter_media_type(service, QELA_MEDIA_WIRED, indexes, 3, &matches));
    judge.Does(qela_get_mac_address(service, 0, text, &length));
  }

  static void UseLock(const Judge& judge, qela_service* service) {
    judge.Answers(QELA_STATUS_NOT_LOCKED, qela_unlock(service));
    judge.Does(qela_lock(service));
    OtherThread([&] { judge.Answers(QELA_STATUS_BUSY, qela_save(service)); }).Join();
    judge.Does(qela_unlock(service));
  }

  static void UseService(const Judge& judge, qela_service* service) {
    qela_location* location = nullptr;
    if (judge.Gives(qela_create_location(service, &location), location)) {
      UseLocation(judge, service, location);
      EXPECT_EQ(qela_location_release(location), QELA_STATUS_OK);
    }
    UseCollections(judge, service);
    UseAddresses(judge, service);
    UseLock(judge, service);
    judge.Does(qela_save(service));
    judge.Does(qela_load(service));
    judge.Does(qela_remove_location(service, kId), {QELA_STATUS_NOT_FOUND});
    judge.Does(qela_remove_all_locations(service));
    judge.Answers(QELA_STATUS_NOT_STARTED, qela_stop(service));
    judge.Does(qela_retain(service));
    judge.Does(qela_close(service));
  }

  // From opening to closing. `lock` is the host's or null.
  static void OpenAndUse(Attempt& attempt, CRITICAL_SECTION* lock) {
    const Judge judge(attempt);
    UseTheProcess(judge);
    qela_options options = QELA_OPTIONS_INIT;
    options.flags = QELA_OPEN_AUTO_SAVE;
    options.call_timeout_ms = 1;
    options.critical_section = lock;
    qela_service* service = nullptr;
    if (judge.Gives(qela_open(&options, &service), service, {QELA_STATUS_SYSTEM_ERROR})) {
      UseService(judge, service);
      judge.Does(qela_close(service));
      judge.Answers(QELA_STATUS_INVALID_HANDLE, qela_close(service));
    }
    attempt.EndFailures();
    EXPECT_EQ(qela_set_error_callback(nullptr, nullptr), QELA_STATUS_OK);
    EXPECT_EQ(qela_set_log_callback(nullptr, nullptr, QELA_LOG_ALL), QELA_STATUS_OK);
    EXPECT_EQ(qela_set_credentials_callback(nullptr, nullptr), QELA_STATUS_OK);
  }

  // ---- discovery ----

  // As IdsIn, where reading may fail.
  static std::optional<Ids> Read(qela_locations* locations) {
    Ids ids;
    std::uint32_t count = 0;
    if (qela_locations_count(locations, &count) != QELA_STATUS_OK) return std::nullopt;
    for (std::uint32_t i = 0; i < count; ++i) {
      qela_location* location = nullptr;
      wchar_t id[100];
      std::uint32_t length = 100;
      if (qela_locations_at(locations, i, &location) != QELA_STATUS_OK) return std::nullopt;
      const qela_status status = qela_location_get_id(location, id, &length);
      EXPECT_EQ(qela_location_release(location), QELA_STATUS_OK);
      if (status != QELA_STATUS_OK) return std::nullopt;
      ids.emplace_back(id);
    }
    return ids;
  }
  // A host who reads again what could not be read.
  static void QELA_CALL OnChange(qela_locations* current, void* context) {
    std::optional<Ids> ids = Read(current);
    if (!ids) ids = Read(current);
    if (ids) static_cast<ToldHost*>(context)->Note(*std::move(ids), current);
  }

  // The host is told this list at last.
  static bool IsToldAtLast(ToldHost& host, const Ids& ids) {
    for (std::optional<Ids> told = host.Take(); told; told = host.Take())
      if (*told == ids) return true;
    return false;
  }

  // From opening to closing, with the host told of everything that happens. Where a call fails once, it is told all the
  // same; where all fail, it is told once they have ended.
  void Discover(Attempt& attempt, const ImportFaults& faults) {
    const Judge judge(attempt);
    const std::size_t threads = m_threads.Count();
    ToldHost host;
    qela_options options = QELA_OPTIONS_INIT;
    // What is refused works once nothing fails.
    const auto insist = [&](auto call) {
      if (judge.Does(call(), {QELA_STATUS_SYSTEM_ERROR})) return;
      attempt.EndFailures();
      EXPECT_EQ(call(), QELA_STATUS_OK);
    };
    const auto start = [&] { return qela_start(m_service, &OnChange, &host); };
    const auto expectTold = [&](const Ids& ids, const char* when) {
      EXPECT_TRUE(attempt.FailsFromThenOn() || IsToldAtLast(host, ids)) << when;
    };
    StoreAsSomebodyElse({{"office", "10.0.0.1"}});
    Join({"10.0.0.1"});
    insist([&] { return qela_open(&options, &m_service); });
    insist(start);
    expectTold({L"office"}, "at the start");
    Move({"192.168.0.1"});
    expectTold({}, "after a move");

    // Somebody stores while the host has the lock, and the worker has to wait for it.
    if (judge.Does(qela_lock(m_service))) {
      const std::uint32_t waits = faults.Calls("WaitForSingleObject");
      StoreAsSomebodyElse({{"office", "10.0.0.1"}, {"home", "192.168.0.1"}});
      if (!attempt.FailsFromThenOn()) Await([&] { return faults.Calls("WaitForSingleObject") != waits; });
      EXPECT_EQ(qela_unlock(m_service), QELA_STATUS_OK);
    }
    expectTold({L"home"}, "after a reload");

    // A stop while the callback runs.
    Gate inside;
    host.OnCall([&](qela_locations*) { inside.Pass(); });
    Move({"10.0.0.1"});
    if (inside.WaitUntilReached(attempt.FailsFromThenOn() ? 30 : 10'000)) {
      const std::uint32_t waits = faults.Calls("SleepConditionVariableCS");
      OtherThread stopper([&] { EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK); });
      Await([&] { return faults.Calls("SleepConditionVariableCS") != waits; });
      inside.Open();
      stopper.Join();
      host.OnCall(nullptr);
      insist(start);
      expectTold({L"office"}, "after a second start");
    } else {
      EXPECT_TRUE(attempt.FailsFromThenOn()) << "the host is not told before the stop";
      inside.Open();
      host.OnCall(nullptr);
    }

    attempt.EndFailures();
    Move({"192.168.0.1"});
    EXPECT_TRUE(IsToldAtLast(host, {L"home"})) << "at the end";
    EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK);
    EXPECT_EQ(qela_close(m_service), QELA_STATUS_OK);
    Forget();
    EXPECT_TRUE(m_threads.WaitForEnd(m_threads.Count() - threads));
  }

  static void ExpectAllClosed(const HandleWatch& handles) {
    EXPECT_THAT(handles.Leaks(), testing::IsEmpty());
    EXPECT_THAT(handles.Mistakes(), testing::IsEmpty());
  }
};

// What the process has of handles and threads stays what it is, but for a few that the system and the runtime keep. It
// takes hundreds of runs in between to see what each leaves behind.
class NothingGrows {
 public:
  NothingGrows() = default;
  ~NothingGrows() {
    EXPECT_LT(CountHandles(), m_handles + kFew);
    EXPECT_LT(CountThreads(), m_threads + kFew);
  }
  NothingGrows(const NothingGrows&) = delete;
  NothingGrows& operator=(const NothingGrows&) = delete;

 private:
  static constexpr std::size_t kFew = 10;
  const std::size_t m_handles = CountHandles();
  const std::size_t m_threads = CountThreads();
};

// Fails the test for an import that was not called, unless it is the runtime's own, or one that this module does not
// call itself where others do.
void ExpectReached(const ImportFaults& faults, const std::set<std::string>& called,
                   const std::set<std::string>& runtimesOwnHere = {}) {
  for (const std::string& name : faults.Names())
    EXPECT_TRUE(called.contains(name) || IsRuntimesOwn(name) || runtimesOwnHere.contains(name))
        << name << " is reached by no scene";
}

std::set<std::string> CalledImports(const ImportFaults& faults) {
  std::set<std::string> called;
  for (std::size_t i = 0; i < faults.Names().size(); ++i)
    if (faults.Calls(i) != 0) called.insert(faults.Names()[i]);
  return called;
}

TEST_F(KitEveryImport, IsReachedOrNamedAsOutOfReach) {
  ImportFaults faults(Kit());
  Attempt clean;
  OpenAndUse(clean, nullptr);
  Discover(clean, faults);
  const auto malloc = std::find(faults.Names().begin(), faults.Names().end(), "malloc");
  faults.FailAt({static_cast<std::size_t>(malloc - faults.Names().begin())}, 3, ImportFaults::Mode::kFromThenOn, {0});
  Attempt withoutMemory(faults, ImportFaults::Mode::kFromThenOn);
  OpenAndUse(withoutMemory, nullptr);
  ExpectReached(faults, CalledImports(faults),
                {"MultiByteToWideChar", "WideCharToMultiByte", "memchr", "memmove", "strcmp"});
}

TEST_F(KitEveryImport, FailsInTheKitsFunctions) {
  const NothingGrows watch;
  const HandleWatch handles(Kit());
  ImportFaults faults(Kit());
  ExpectKnownImports(faults);
  FailEveryImport(faults, 12, [&](Attempt& attempt) {
    OpenAndUse(attempt, nullptr);
    ExpectAllClosed(handles);
  });
}

TEST_F(KitEveryImport, FailsInDiscovery) {
  const HandleWatch handles(Kit());
  ImportFaults faults(Kit());
  FailEveryImport(faults, 4, [&](Attempt& attempt) {
    Discover(attempt, faults);
    ExpectAllClosed(handles);
  });
}

// A copy of the kit goes when it is unloaded.
BOOL WINAPI FindModuleUnpinned(DWORD flags, const wchar_t* name, HMODULE* module) {
  return ::GetModuleHandleExW(
      (flags & ~DWORD{GET_MODULE_HANDLE_EX_FLAG_PIN}) | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, name, module);
}

// What the kit does in a process once: a copy that has just been loaded does it each time. The library's instance knows
// it by the lock, which is the same for all.
TEST_F(KitEveryImport, FailsAtTheFirstOpen) {
  static CRITICAL_SECTION section;
  ::InitializeCriticalSection(&section);
  qela_options options = QELA_OPTIONS_INIT;
  options.critical_section = &section;
  if (qela_open(&options, &m_service) == QELA_STATUS_INVALID_ARGUMENT) GTEST_SKIP() << "needs a process of its own";
  ASSERT_EQ(qela_close(m_service), QELA_STATUS_OK);
  Forget();
  const NothingGrows watch;
  const ModuleCopy copy(L"QeLaC.dll");
  const auto withCopy = [&](const auto& use) {
    const ModuleCopy::Loaded loaded(copy);
    const ImportPatch unpinned(loaded.Module(), "GetModuleHandleExW", &FindModuleUnpinned);
    const HandleWatch handles(loaded.Module());
    ImportFaults faults(loaded.Module());
    use(faults);
    ExpectAllClosed(handles);
  };
  FailEveryImport(withCopy, 8, [&](Attempt& attempt) { OpenAndUse(attempt, &section); });
}

// ---- the log ----

// Standard error as a console, which a test has none of.
thread_local bool g_console = false;
DWORD WINAPI TypeOfFile(HANDLE file) { return g_console ? FILE_TYPE_CHAR : ::GetFileType(file); }
BOOL WINAPI ModeOfConsole(HANDLE console, DWORD* mode) { return g_console || ::GetConsoleMode(console, mode); }
BOOL WINAPI WriteToConsole(HANDLE, const void*, DWORD, DWORD*, void*) { return TRUE; }
void WINAPI IgnoreDebugger(const wchar_t*) {}

class LogEveryImport : public testing::Test {
 protected:
  LogEveryImport() {
    std::filesystem::create_directories(m_folder);
    ::SetEnvironmentVariableW(L"LOGLIB_FILE", File(L"").c_str());
    m_errors = ::CreateFileW((m_folder / L"stderr").c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0,
                             nullptr);
    ::SetStdHandle(STD_ERROR_HANDLE, m_errors);
  }
  ~LogEveryImport() override {
    ::SetStdHandle(STD_ERROR_HANDLE, m_standardError);
    ::CloseHandle(m_errors);
    ::SetEnvironmentVariableW(L"LOGLIB_FILE", nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }

  std::filesystem::path File(const wchar_t* age) const { return m_folder / (std::wstring(L"log") + age); }

  // The log file is full, so that the first event begins a new one.
  void FillFile() const {
    for (const wchar_t* age : {L"", L".0", L".1", L".2", L".3"}) std::filesystem::remove(File(age));
    const HANDLE file = ::CreateFileW(File(L"").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    LARGE_INTEGER end{};
    end.QuadPart = 10 << 20;
    ::SetFilePointerEx(file, end, nullptr, FILE_BEGIN);
    ::SetEndOfFile(file);
    ::CloseHandle(file);
  }

  static void Log(const wchar_t* text) {
    LogUtils::LogEvent("file.cpp", 7, 8, "source", getLogManager(), 2, 0)("component", L"%s", text);
  }
  static void LogNarrow(const wchar_t* text) {
    LogUtils::LogEvent("B\xc3\xbcro.cpp", 7, 8, "source", getLogManager(), 2, 0)("component", "%S", text);
  }

  static void Sink(const LogUtils::LogRecord& record, void* context) {
    static_cast<std::vector<std::wstring>*>(context)->emplace_back(record.text);
  }
  static void GatedSink(const LogUtils::LogRecord&, void* context) { static_cast<Gate*>(context)->Pass(); }

  void LogEverything(Attempt& attempt, const ImportFaults& faults) {
    const Judge judge(attempt);
    const std::wstring longText(1000, L'x');
    Log(L"B\u00fcro \u6771");
    Log(longText.c_str());
    LogNarrow(L"B\u00fcro\n\u6771");
    g_console = true;
    Log(L"B\u00fcro \u6771");
    g_console = false;
    ::SetStdHandle(STD_ERROR_HANDLE, nullptr);
    Log(L"B\u00fcro \u6771");
    ::SetStdHandle(STD_ERROR_HANDLE, m_errors);
    judge.Does(LogLibSetCallback(&IgnoreRecord, nullptr, QELA_LOG_ALL));
    Log(L"text");
    judge.Does(LogLibSetCallback(nullptr, nullptr, QELA_LOG_ALL));
    LogUtils::setConsoleLogging(false);

    // A sink is taken away while it runs.
    Gate inside;
    LogUtils::setLogSink(&GatedSink, &inside);
    OtherThread logger([&] { Log(L"text"); });
    if (inside.WaitUntilReached(attempt.Fails() ? 20 : 10'000)) {
      const std::uint32_t waits = faults.Calls("SleepConditionVariableCS");
      OtherThread taker([] { LogUtils::setLogSink(nullptr, nullptr); });
      Await([&] { return faults.Calls("SleepConditionVariableCS") != waits || taker.HasEnded(0); });
      inside.Open();
    }
    inside.Open();
    logger.Join();

    attempt.EndFailures();
    std::vector<std::wstring> heard;
    LogUtils::setLogSink(&Sink, &heard);
    Log(L"at the end");
    LogUtils::setLogSink(nullptr, nullptr);
    LogUtils::setConsoleLogging(true);
    EXPECT_EQ(heard, Ids{L"at the end"});
  }

  const std::filesystem::path m_folder = std::filesystem::temp_directory_path() / (L"every import " + UniqueName());
  HANDLE m_errors;
  HANDLE m_standardError = ::GetStdHandle(STD_ERROR_HANDLE);
};

// A copy that is unloaded leaves what its runtime keeps of threads, so that is not counted here.
TEST_F(LogEveryImport, Fails) {
  const ModuleCopy copy(L"LogLib.dll");
  const ImportFaults* faultsOfCopy = nullptr;
  const auto withCopy = [&](const auto& use) {
    FillFile();
    const ModuleCopy::Loaded loaded(copy);
    const ImportPatch type(loaded.Module(), "GetFileType", &TypeOfFile);
    const ImportPatch mode(loaded.Module(), "GetConsoleMode", &ModeOfConsole);
    const ImportPatch write(loaded.Module(), "WriteConsoleW", &WriteToConsole);
    const ImportPatch debugger(loaded.Module(), "OutputDebugStringW", &IgnoreDebugger);
    const HandleWatch handles(loaded.Module());
    ImportFaults faults(loaded.Module());
    ExpectKnownImports(faults);
    faultsOfCopy = &faults;
    use(faults);
    EXPECT_LE(handles.Open("CreateFileW"), 1u) << "only the log file stays open";
    EXPECT_THAT(handles.Mistakes(), testing::IsEmpty());
  };
  const auto called = FailEveryImport(withCopy, 8, [&](Attempt& attempt) { LogEverything(attempt, *faultsOfCopy); });
  const std::set<std::string> runtimesOwnHere = {"fputs",
                                                 "GetProcAddress",
                                                 "ResetEvent",
                                                 "SetEvent",
                                                 "SetLastError",
                                                 "Sleep",
                                                 "TlsGetValue",
                                                 "TryEnterCriticalSection",
                                                 "WaitForMultipleObjects",
                                                 "WaitForSingleObject",
                                                 "_errno",
                                                 "memcmp"};
  withCopy([&](const ImportFaults& faults) { ExpectReached(faults, called, runtimesOwnHere); });
}

// ---- credentials and variants ----

// As the library asks for them, and as a host in C++ sets them.
void AskForCredentials(Attempt& attempt) {
  const Judge judge(attempt);
  const bool fails = attempt.Fails();
  judge.Does(BLFrameworkSetCredentialsCallback(&GiveCredentials, nullptr));
  for (const bool callback : {true, false}) {
    const bool initialized = BLFrameworkInit() == 0;
    EXPECT_TRUE(initialized || fails);
    BLObjectHandle object = nullptr;
    if (BLGetObjectHandle("RVX", 0, 0, &object) == 0) {
      KzVariant* const argument = KzvString(L"proxyCredentials", nullptr, 0).BuildNewKzVariant(&BLAlloc);
      KzVariant* answer = nullptr;
      const int status = BLInvokeMethod(object, "proxyCredentials", argument, &answer);
      EXPECT_TRUE(fails || (status == 0 && answer != nullptr));
      BLFree(answer);
      BLFree(argument);
      EXPECT_EQ(BLReleaseObjectHandle(object), 0);
    } else {
      EXPECT_TRUE(fails);
    }
    if (initialized) BLFrameworkCleanUp();
    if (!callback) break;
    judge.Does(BLFrameworkSetCredentialsCallback(nullptr, nullptr));
    try {
      BLFrameworkHost::setProxyCredentials(L"a user with a long name", L"a password that is not short");
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(fails);
    }
  }
  attempt.EndFailures();
  EXPECT_EQ(BLFrameworkSetCredentialsCallback(nullptr, nullptr), QELA_STATUS_OK);
  BLFrameworkHost::reset();
  const BLFrameworkHost::InUse inUse = BLFrameworkHost::inUse();
  EXPECT_EQ(inUse.initializations + inUse.objectHandles + inUse.blocks, 0u);
}

TEST(CredentialsEveryImport, Fails) {
  const NothingGrows watch;
  const ModuleCopy copy(L"blframework.dll");
  const auto withCopy = [&](const auto& use) {
    const ModuleCopy::Loaded loaded(copy);
    ImportFaults faults(loaded.Module());
    ExpectKnownImports(faults);
    use(faults);
  };
  const auto called = FailEveryImport(withCopy, 24, &AskForCredentials);
  const std::set<std::string> runtimesOwnHere = {"CloseHandle",
                                                 "DeleteCriticalSection",
                                                 "GetLastError",
                                                 "GetProcAddress",
                                                 "InitializeCriticalSection",
                                                 "MultiByteToWideChar",
                                                 "ResetEvent",
                                                 "SetEvent",
                                                 "SetLastError",
                                                 "Sleep",
                                                 "SleepConditionVariableCS",
                                                 "TlsGetValue",
                                                 "TryEnterCriticalSection",
                                                 "WaitForMultipleObjects",
                                                 "WaitForSingleObject",
                                                 "_errno",
                                                 "memchr",
                                                 "memcmp",
                                                 "memmove",
                                                 "memset",
                                                 "strlen",
                                                 "WideCharToMultiByte"};
  withCopy([&](const ImportFaults& faults) { ExpectReached(faults, called, runtimesOwnHere); });
}

// Its memory is its caller's, and nothing else that it asks for can fail.
TEST(VariantsEveryImport, AreKnownAndCannotFail) {
  const HMODULE module = ::GetModuleHandleW(L"KzVariantExport.dll");
  ImportFaults faults(module);
  ExpectKnownImports(faults);
  for (const bool gives : {true, false}) {
    const KzvElement elements[] = {{L"name", L"text"}, {nullptr, nullptr}};
    KzVariant* const list =
        BuildNewKzVariantList(elements, 2, gives ? &std::malloc : +[](std::size_t) -> void* { return nullptr; });
    EXPECT_EQ(list != nullptr, gives);
    EXPECT_EQ(KzvView(list).List() != nullptr, gives);
    EXPECT_EQ(KzvView(list)[0].String() != nullptr, gives);
    std::free(list);
  }
  for (std::size_t i = 0; i < faults.Names().size(); ++i)
    EXPECT_TRUE(faults.Calls(i) == 0 || FindImportRule(faults.Names()[i])->failures.empty()) << faults.Names()[i];
}

}  // namespace
