#include "Tools/qela/OutputFile.h"

#include <winsock2.h>
#include <windows.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/UniqueName.h"
#include "Tests/Support/CommandFailure.h"

namespace {

using testing::HasSubstr;

TEST(QelaOutputFile, AFullDiskIsToldWithTheFile) {
  const std::filesystem::path path = std::filesystem::temp_directory_path() / UniqueName();
  {
    OutputFile file(path.wstring());
    file.Write("bytes");
    const ImportPatch patch(
        ThisProgram(), "WriteFile", +[](HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED) -> BOOL {
          ::SetLastError(ERROR_DISK_FULL);
          return FALSE;
        });
    const std::string failure = FailureOf([&] { file.Flush(); });
    EXPECT_THAT(failure, HasSubstr(path.filename().string()));
    EXPECT_THAT(failure, HasSubstr("112"));
  }
  std::filesystem::remove(path);
}

}  // namespace
