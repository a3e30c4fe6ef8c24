// The stand-in itself: what a process gets that sets it by environment variables, as a demo does.
#include <windows.h>
#include <BLFrameworkHost.h>
#include <gtest/gtest.h>

#include "FwClient/Service/QeLaLib/ProxyCredentials.h"

namespace {

class EnvironmentVariable {
 public:
  EnvironmentVariable(const wchar_t* name, const wchar_t* value) : m_name(name) {
    ::SetEnvironmentVariableW(name, value);
  }
  ~EnvironmentVariable() { ::SetEnvironmentVariableW(m_name, nullptr); }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  const wchar_t* m_name;
};

TEST(BLFramework, AnswersWithTheCredentialsOfTheEnvironment) {
  const EnvironmentVariable user(L"BLFRAMEWORK_PROXY_USER", L"user");
  const EnvironmentVariable password(L"BLFRAMEWORK_PROXY_PASSWORD", L"secret");
  ProxyContext context;
  GetProxyCredentials(context, L"host.example");
  EXPECT_EQ(context.userName, L"user");
  EXPECT_EQ(context.password, L"secret");
}

TEST(BLFramework, LetsTheHostOverrideTheEnvironment) {
  const EnvironmentVariable user(L"BLFRAMEWORK_PROXY_USER", L"user");
  BLFrameworkHost::setProxyCredentials(L"host's", L"choice");
  ProxyContext context;
  GetProxyCredentials(context, L"host.example");
  EXPECT_EQ(context.userName, L"host's");
  BLFrameworkHost::reset();
}

TEST(BLFramework, FailsTheCallThatTheEnvironmentNames) {
  const EnvironmentVariable user(L"BLFRAMEWORK_PROXY_USER", L"user");
  const EnvironmentVariable fail(L"BLFRAMEWORK_FAIL", L"BLInvokeMethod");
  ProxyContext context;
  GetProxyCredentials(context, L"host.example");
  EXPECT_EQ(context.userName, L"");
}

}  // namespace
