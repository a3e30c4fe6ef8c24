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
#include "Tools/qela/Commands.h"
#include "Tools/qela/Interrupt.h"
#include "Tools/qela/Json.h"
#include "Tools/qela/Service.h"

namespace {

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

  static ExitCode WatchForAMinute() {
    Options options;
    options.json = true;
    options.seconds = 60;
    return Watch(options);
  }

  Json NextEvent() {
    std::string line;
    for (char letter = 0; letter != '\n';) {
      DWORD read = 0;
      if (!::ReadFile(m_reader.get(), &letter, 1, &read, nullptr) || read == 0) break;
      line += letter;
    }
    return Json::parse(line, nullptr, false);
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
  // The process's instance, which is the watch's.
  const auto get = reinterpret_cast<decltype(&::GetQeLaApiSmart)>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"QeLaLib.dll"), "GetQeLaApiSmart")));
  const std::shared_ptr<_IQeLaApiSmart> service = get(nullptr);
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

}  // namespace
