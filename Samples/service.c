/* A Windows service: writes the current locations, and the library's errors, to the event log. An edit of the stored
 * locations reaches it by itself. Paused, it is told nothing; continued, it is told what is current then.
 *   sc create QeLaSample binPath= C:\...\service.exe        sc start QeLaSample */
#include <windows.h>
#include <qela.h>
static wchar_t s_name[] = L"QeLaSample";
static SERVICE_STATUS_HANDLE s_handle;
static HANDLE s_events, s_stop;
static qela_service* s_service;

static void report(WORD type, const wchar_t* text) { ReportEventW(s_events, type, 0, 1, NULL, 1, 0, &text, NULL); }
static void tell(DWORD state, DWORD error) {
  const DWORD controls = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PAUSE_CONTINUE;
  const DWORD taken = state == SERVICE_RUNNING || state == SERVICE_PAUSED ? controls : 0;
  SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, state, taken, error, 0, 0, 300000};
  SetServiceStatus(s_handle, &status);
}
static void QELA_CALL on_log(const qela_log_record* record, void* context) {
  (void)context, report(EVENTLOG_ERROR_TYPE, record->text);
}
static void QELA_CALL on_change(qela_locations* current, void* context) {
  wchar_t text[1024] = L"current:";
  uint32_t used = 8, count = 0;
  qela_locations_count(current, &count);
  for (uint32_t i = 0; i < count && used < 1000; ++i) {
    qela_location* location = NULL;
    uint32_t length = 1023 - used;
    if (qela_locations_at(current, i, &location) != QELA_STATUS_OK) break;
    if (qela_location_get_name(location, text + used + 1, &length) == QELA_STATUS_OK) text[used] = L' ', used += length;
    qela_location_release(location);
  }
  (void)context, report(EVENTLOG_INFORMATION_TYPE, text);
}
static DWORD WINAPI on_control(DWORD control, DWORD type, void* data, void* context) {
  (void)type, (void)data, (void)context;
  if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN)
    tell(SERVICE_STOP_PENDING, 0), SetEvent(s_stop);
  const int pause = control == SERVICE_CONTROL_PAUSE, go_on = control == SERVICE_CONTROL_CONTINUE;
  if (pause && qela_stop(s_service) == QELA_STATUS_BUSY) return ERROR_BUSY; /* on_change still runs: ask again */
  if (go_on && qela_start(s_service, on_change, NULL) != QELA_STATUS_OK) return ERROR_NOT_READY;
  if (pause || go_on) tell(pause ? SERVICE_PAUSED : SERVICE_RUNNING, 0);
  return NO_ERROR;
}
static void WINAPI run(DWORD count, wchar_t** arguments) {
  qela_options options = QELA_OPTIONS_INIT;
  s_handle = RegisterServiceCtrlHandlerExW(s_name, on_control, NULL);
  s_events = RegisterEventSourceW(NULL, s_name);
  s_stop = CreateEventW(NULL, TRUE, FALSE, NULL), (void)count, (void)arguments;
  tell(SERVICE_START_PENDING, 0); /* opening calculates, and a silent web host makes that long */
  qela_set_log_callback(on_log, NULL, QELA_LOG_ERRORS);
  qela_status status = qela_open(&options, &s_service);
  if (status == QELA_STATUS_OK) status = qela_start(s_service, on_change, NULL);
  if (status == QELA_STATUS_OK) tell(SERVICE_RUNNING, 0), WaitForSingleObject(s_stop, INFINITE);
  qela_close(s_service);
  tell(SERVICE_STOPPED, status == QELA_STATUS_OK ? NO_ERROR : ERROR_INVALID_DATA);
}
int main(void) {
  const SERVICE_TABLE_ENTRYW table[] = {{s_name, run}, {NULL, NULL}};
  return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
