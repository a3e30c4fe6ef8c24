// Fixture for tests of the HTTPS probe: everything that it asks of Windows is scripted.
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

class ScriptedHttps : public testing::Test {
 protected:
  ScriptedHttps() {
    https.impersonating = [this] { return user.impersonating; };
  }
  // Whatever a test did to the thread, the next one finds it as itself.
  ~ScriptedHttps() override {
    user.LetGo();
    RestoreThreadIdentity();
  }

  // The server asks for a client certificate at every send.
  void AlwaysAskForCertificate() { https.answers = {HttpsAnswer::SendFails(ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED)}; }

  LogRecorder log;
  WindowsScript windows{ThisProgram()};
  ScriptedEvents events{windows};
  ScriptedRegistry registry{windows};
  FakeSystem system{windows};
  FakeProcesses processes{windows};
  FakeInteractiveUser user{windows};
  FakeCertificates certificates{windows};
  FakeHttps https{windows};
};
