/* control_service NAME pause|continue|stop|running: sends a service the control, and waits until it has the state that
 * follows; the last only waits. */
#include <windows.h>
#include <wchar.h>

int wmain(int count, wchar_t** arguments) {
  static const struct {
    const wchar_t* name;
    DWORD control, state;
  } known[] = {{L"pause", SERVICE_CONTROL_PAUSE, SERVICE_PAUSED},
               {L"continue", SERVICE_CONTROL_CONTINUE, SERVICE_RUNNING},
               {L"stop", SERVICE_CONTROL_STOP, SERVICE_STOPPED},
               {L"running", 0, SERVICE_RUNNING}};
  if (count != 3) return 2;
  const SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_CONNECT);
  const SC_HANDLE service = OpenServiceW(manager, arguments[1], SERVICE_ALL_ACCESS);
  for (size_t i = 0; i < sizeof known / sizeof *known; ++i) {
    SERVICE_STATUS status = {0};
    if (wcscmp(arguments[2], known[i].name) != 0) continue;
    if (known[i].control != 0 && !ControlService(service, known[i].control, &status)) return 1;
    for (int tries = 0; tries < 1000; ++tries, Sleep(10))
      if (QueryServiceStatus(service, &status) && status.dwCurrentState == known[i].state) return 0;
  }
  return 1;
}
