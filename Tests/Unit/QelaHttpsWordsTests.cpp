#include "Tools/qela/HttpsWords.h"

#include <winsock2.h>
#include <windows.h>
#include <gmock/gmock.h>
#include <winhttp.h>

namespace {

using testing::ElementsAre;

TEST(QelaHttpsWords, AnErrorThatNobodyHereCanCureHasNoAdvice) {
  const LoggedHostProbe::Request cut{.wasSent = false, .code = ERROR_WINHTTP_CONNECTION_ERROR};
  const LoggedHostProbe::Request unknown{.wasSent = false, .code = 12'999};
  const LoggedHostProbe::Request lost{.wasSent = false, .code = ERROR_WINHTTP_NAME_NOT_RESOLVED};
  EXPECT_EQ(AdviceFor(cut), "");
  EXPECT_EQ(AdviceFor(unknown), "");
  EXPECT_EQ(AdviceFor(lost), "DNS must know the name here");
  LoggedHostProbe probe;
  probe.requests = {cut, unknown};
  EXPECT_THAT(InWords(probe), ElementsAre("error 12030 (the connection was cut)", "error 12999"));
}

}  // namespace
