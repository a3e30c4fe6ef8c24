// qela watch in the process of the test, which so can do to the library what a host does. The library is the shipped
// DLL; its registry is a key of the test's own.
#include <winsock2.h>
#include <windows.h>
#include <gmock/gmock.h>

#include <string>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/Windows/AdapterList.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Support/OtherThread.h"
#include "Tests/Support/StoredSet.h"
#include "Tools/qela/CommandError.h"
#include "Tools/qela/Commands.h"
#include "Tools/qela/Interrupt.h"
#include "Tools/qela/Json.h"
#include "Tools/qela/Service.h"

namespace {

using testing::HasSubstr;

// Watches from the construction on; standard output is read from a pipe.
class QelaWatch : public testing::Test {
 protected:
  QelaWatch() : m_fake(::LoadLibraryW(L"QeLaLib.dll"), AdaptersOfMachine()) {
    ::CreatePipe(m_reader.put(), m_writer.put(), nullptr, 0);
    m_output = ::GetStdHandle(STD_OUTPUT_HANDLE);
    ::SetStdHandle(STD_OUTPUT_HANDLE, m_writer.get());
  }
  ~QelaWatch() override { ::SetStdHandle(STD_OUTPUT_HANDLE, m_output); }

  static AdapterList AdaptersOfMachine() {
    AdapterList adapters;
    adapters.Add(L"eth0").Index(2);
    return adapters;
  }

  static ExitCode WatchForAMinute(bool json = true) {
    Options options;
    options.json = json;
    options.seconds = 60;
    return Watch(options);
  }

  Json NextEvent() { return Json::parse(NextLine(), nullptr, false); }

  std::string NextLine() {
    std::string line;
    for (char letter = 0; letter != '\n';) {
      DWORD read = 0;
      if (!::ReadFile(m_reader.get(), &letter, 1, &read, nullptr) || read == 0) break;
      line += letter;
    }
    return line;
  }

  // The process's instance, which is the watch's.
  static std::shared_ptr<_IQeLaApiSmart> Service() {
    const auto get = reinterpret_cast<decltype(&::GetQeLaApiSmart)>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"QeLaLib.dll"), "GetQeLaApiSmart")));
    return get(nullptr);
  }

  WithStoredSet<RedirectedMachineHive> m_registry;
  FakeAdapters m_fake;
  UniqueKernelHandle m_reader;
  UniqueKernelHandle m_writer;
  HANDLE m_output = nullptr;
};

TEST_F(QelaWatch, NamesASaveAsTheCauseOfWhatItChanged) {
  ExitCode code = kFailed;
  OtherThread watch([&] { code = WatchForAMinute(); });
  EXPECT_EQ(NextEvent()["event"], "start");
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  const std::shared_ptr<_IQeLocation> everywhere = service->CreateLocation();
  everywhere->SetName(L"Everywhere");
  service->AddLocation(everywhere);
  EXPECT_TRUE(service->Save());
  const Json change = NextEvent();
  EXPECT_EQ(change["event"], "change");
  EXPECT_EQ(change["cause"], "refresh");
  EXPECT_EQ(change["changes"], Json::array());
  EXPECT_EQ(change["entered"][0]["name"], "Everywhere");
  ::SetEvent(Interrupt::Event());
  EXPECT_EQ(NextEvent()["reason"], "interrupted");
  watch.Join();
  EXPECT_EQ(code, kDone);
}

TEST_F(QelaWatch, TellsInALineWhatWasEnteredAndLeft) {
  ExitCode code = kFailed;
  OtherThread watch([&] { code = WatchForAMinute(false); });
  EXPECT_THAT(NextLine(), HasSubstr("  start    current: none"));
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  const std::shared_ptr<_IQeLocation> everywhere = service->CreateLocation();
  everywhere->SetName(L"Everywhere");
  service->AddLocation(everywhere);
  EXPECT_TRUE(service->Save());
  std::string line = NextLine();
  EXPECT_THAT(line, HasSubstr("  change   entered: Everywhere"));
  EXPECT_THAT(line, HasSubstr("  current: Everywhere"));
  EXPECT_THAT(line, HasSubstr("  cause: refresh\n"));
  EXPECT_EQ(service->RemoveLocation(everywhere->GetId()), LSR_OK);
  EXPECT_TRUE(service->Save());
  line = NextLine();
  EXPECT_THAT(line, HasSubstr("  change   left: Everywhere  current: none  cause: refresh"));
  ::SetEvent(Interrupt::Event());
  EXPECT_THAT(NextLine(), HasSubstr("  end      interrupted"));
  watch.Join();
  EXPECT_EQ(code, kDone);
}

TEST_F(QelaWatch, EndsWhenAChangeReachesNobody) {
  std::string message;
  OtherThread watch([&] {
    try {
      WatchForAMinute();
    } catch (const CommandError& error) {
      message = error.what();
    }
  });
  EXPECT_EQ(NextEvent()["event"], "start");
  m_reader.reset();
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  service->AddLocation(service->CreateLocation());
  EXPECT_TRUE(service->Save());
  watch.Join();
  EXPECT_THAT(message, HasSubstr("the output could not be written"));
}

}  // namespace
