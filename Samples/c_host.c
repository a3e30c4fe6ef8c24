/* A host in C: prints the current locations whenever they change, until its standard input ends. */
#include <qela.h>
#include <stdio.h>

static void QELA_CALL on_change(qela_locations* current, void* context) {
  uint32_t count = 0;
  qela_locations_count(current, &count);
  printf("%s:", (const char*)context);
  for (uint32_t i = 0; i < count; ++i) {
    qela_location* location = NULL;
    wchar_t name[256];
    uint32_t length = 256;
    if (qela_locations_at(current, i, &location) != QELA_STATUS_OK) continue;
    if (qela_location_get_name(location, name, &length) == QELA_STATUS_OK) printf(" %ls", name);
    qela_location_release(location);
  }
  printf("\n");
  fflush(stdout);
}

static int fail(const char* what, qela_status status) {
  fprintf(stderr, "%s: %s\n", what, qela_status_text(status));
  return 1;
}

int main(void) {
  qela_options options = QELA_OPTIONS_INIT;
  options.quiet_ms = 200; /* a network that comes up is one change, not ten */
  qela_service* service = NULL;
  qela_status status = qela_open(&options, &service);
  if (status != QELA_STATUS_OK) return fail("qela_open", status);

  status = qela_start(service, on_change, "current");
  if (status != QELA_STATUS_OK) return fail("qela_start", status);
  while (getchar() != EOF) continue;

  status = qela_close(service); /* stops first; the callback does not run any more */
  return status == QELA_STATUS_OK ? 0 : fail("qela_close", status);
}
