// Fixtures for tests of the HTTPS probe: everything that it asks of Windows is scripted.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "ScriptedWindows/Windows/FakeCertificates.h"
#include "ScriptedWindows/Windows/FakeHttps.h"
#include "ScriptedWindows/Windows/FakeInteractiveUser.h"
#include "ScriptedWindows/Windows/FakeProcesses.h"
#include "ScriptedWindows/Windows/FakeSystem.h"
#include "ScriptedWindows/Windows/ScriptedEvents.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "ScriptedWindows/Windows/WindowsScript.h"
#include "Tests/Support/LogRecorder.h"

// For tests that count or withhold memory, which recording the log needs too.
class ScriptedHttpsWithoutLog : public testing::Test {
 protected:
  ScriptedHttpsWithoutLog() {
    m_https.impersonating = [this] { return m_user.impersonating; };
  }
  // Whatever a test did to the thread, the next one finds it as itself.
  ~ScriptedHttpsWithoutLog() override {
    m_user.LetGo();
    RestoreThreadIdentity();
  }

  // The server asks for a client certificate at every send.
  void AlwaysAskForCertificate() { m_https.answers = {HttpsAnswer::SendFails(ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED)}; }

  WindowsScript m_windows{ThisProgram()};
  ScriptedEvents m_events{m_windows};
  ScriptedRegistry m_registry{m_windows};
  FakeSystem m_system{m_windows};
  FakeProcesses m_processes{m_windows};
  FakeInteractiveUser m_user{m_windows};
  FakeCertificates m_certificates{m_windows};
  FakeHttps m_https{m_windows};
};

class ScriptedHttps : public ScriptedHttpsWithoutLog {
 protected:
  LogRecorder m_log;
};
