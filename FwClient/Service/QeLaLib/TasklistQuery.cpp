#include "FwClient/Service/QeLaLib/TasklistQuery.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "FwClient/Common/Utilities/SystemDirectory.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"

namespace {

constexpr DWORD kOutputBytes = 4096;

// What tasklist may take. It asks other services of the system, so it can be slow, and it must not hold this one.
constexpr ULONGLONG kOutputLimitMs = 30000;
constexpr DWORD kPollMs = 10;

struct Pipe {
  UniqueKernelHandle read;
  UniqueKernelHandle write;
};

enum class ParentEnd { kRead, kWrite };

// A pipe to a child, which inherits only the other end.
bool MakePipe(Pipe& pipe, ParentEnd parentEnd) {
  SECURITY_ATTRIBUTES inheritable{};
  inheritable.nLength = sizeof inheritable;
  inheritable.bInheritHandle = TRUE;
  if (!::CreatePipe(pipe.read.put(), pipe.write.put(), &inheritable, 0)) return false;
  HANDLE parents = parentEnd == ParentEnd::kRead ? pipe.read.get() : pipe.write.get();
  return ::SetHandleInformation(parents, HANDLE_FLAG_INHERIT, 0) != FALSE;
}

// A started tasklist and the parent's ends of its pipes.
struct Tasklist {
  Pipe output;
  Pipe input;
  UniqueKernelHandle process;
  UniqueKernelHandle thread;
};

bool Start(Tasklist& tasklist, const std::wstring& imageName) {
  std::wstring program;
  if (!MakePipe(tasklist.output, ParentEnd::kRead) || !MakePipe(tasklist.input, ParentEnd::kWrite) ||
      !GetSystemDirectoryPath(program))
    return false;
  program += L"\\tasklist.exe";
  std::wstring commandLine = L" /FI \"IMAGENAME eq ";
  commandLine += imageName;
  commandLine += L"\" /FO CSV /NH";

  STARTUPINFOW startup{};
  static_assert(sizeof startup == 104);
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  startup.hStdInput = tasklist.input.read.get();
  startup.hStdOutput = tasklist.output.write.get();
  startup.hStdError = tasklist.output.write.get();
  PROCESS_INFORMATION child{};
  if (!::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &child))
    return false;
  tasklist.process.reset(child.hProcess);
  tasklist.thread.reset(child.hThread);
  // While this process held the child's end of the output, its end would never be seen.
  tasklist.output.write.reset();
  tasklist.input.read.reset();
  return true;
}

// Waits until ReadFile will not block. A pipe of this kind has no event to wait for, so it is looked at again and
// again; a failed look means that ReadFile fails at once as well. False: nothing came in time.
bool WaitForOutput(HANDLE pipe, ULONGLONG deadline) {
  DWORD available = 0;
  while (::PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) && available == 0) {
    if (::GetTickCount64() >= deadline) return false;
    ::Sleep(kPollMs);
  }
  return true;
}

// Reads until the child ends, says nothing for too long or has filled the buffer. More is not needed: only processes
// of the one image name are listed, and the first is taken. A child that has more to say ends when its pipe closes.
std::size_t ReadOutput(const Tasklist& tasklist, std::array<char, kOutputBytes>& buffer) {
  const ULONGLONG deadline = ::GetTickCount64() + kOutputLimitMs;
  HANDLE pipe = tasklist.output.read.get();
  DWORD used = 0;
  while (used < kOutputBytes) {
    if (!WaitForOutput(pipe, deadline)) {
      ::TerminateProcess(tasklist.process.get(), 1);
      break;
    }
    DWORD count = 0;
    if (!::ReadFile(pipe, buffer.data() + used, kOutputBytes - used, &count, nullptr) || count == 0) break;
    used += count;
  }
  return used;
}

// Takes the next field off the front of a line. Quotes and commas separate fields, and several of them count as one.
std::string TakeField(std::string_view& line) {
  constexpr std::string_view kSeparators = "\",";
  line.remove_prefix(std::min(line.find_first_not_of(kSeparators), line.size()));
  const std::string_view field = line.substr(0, line.find_first_of(kSeparators));
  line.remove_prefix(field.size());
  return std::string(field);
}

// Compares a field, which is in the process's own narrow encoding. Text that is not valid in it equals no name.
bool Equals(const std::string& field, const std::wstring& imageName) {
  constexpr std::size_t kMaxCharacters = 511;
  std::array<wchar_t, kMaxCharacters + 1> wide{};
  return std::mbstowcs(wide.data(), field.c_str(), kMaxCharacters) != static_cast<std::size_t>(-1) &&
         imageName == wide.data();
}

}  // namespace

// The image name comes from the registry, from a place that only administrators can write. No command interpreter reads
// the command line, so the only special characters are those of tasklist's own argument rules. A quote would end the
// filter, and what follows would be arguments of their own (another computer to ask, for example). No image name holds
// a quote and no output could match it, so such a name is refused before anything is started. Blanks, commas and
// other characters stay inside the filter. A backslash at the end takes the closing quote into the filter, and all that
// follows with it: then tasklist finds nothing. A name that is too long makes CreateProcessW fail.
bool FindProcessIdWithTasklist(const std::wstring& imageName, DWORD* processId) {
  if (imageName.find(L'"') != std::wstring::npos) return false;
  Tasklist tasklist;
  if (!Start(tasklist, imageName)) return false;
  std::array<char, kOutputBytes> buffer;
  const std::size_t size = ReadOutput(tasklist, buffer);
  return FindProcessIdInCsv({buffer.data(), size}, imageName, processId);
}

bool FindProcessIdInCsv(std::string_view text, const std::wstring& imageName, DWORD* processId) {
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    // Each line is read as C text.
    line = line.substr(0, line.find('\0'));
    if (!line.starts_with('"')) continue;
    if (!Equals(TakeField(line), imageName)) continue;
    const std::string id = TakeField(line);
    if (id.empty()) continue;
    *processId = static_cast<DWORD>(std::strtol(id.c_str(), nullptr, 10));
    return true;
  }
  return false;
}
