/* Calls every function of the C interface with nothing that a compiler does not bring itself: no header but its own,
 * and one function of the C run time. The stored set is saved as it was read; what is edited is not saved. */
#include <qela.h>
int puts(const char* text);
static int s_failed;
static void must(qela_status status, const char* call) {
  if (status != QELA_STATUS_OK) puts(call), puts(qela_status_text(status)), s_failed = 1;
}
#define OK(call) must(call, #call)
#define TEXT \
  text, &(uint32_t) { sizeof text / sizeof *text }

static void QELA_CALL on_log(const qela_log_record* record, void* context) { (void)record, (void)context; }
static void QELA_CALL on_change(qela_locations* current, void* context) { (void)current, (void)context; }

int main(void) {
  const wchar_t *id = L"{office}", *gateway = L"10.20.0.1";
  qela_criterion_kind kind = QELA_CRITERION_DEFAULT_GATEWAY;
  wchar_t text[64];
  unsigned char bytes[1000];
  uint32_t length = sizeof bytes, count = 1, adapters[] = {1};
  int32_t flag = 0;
  qela_service* service = NULL;
  qela_location *one = NULL, *copy = NULL;
  qela_criteria* all = NULL;
  qela_locations* set = NULL;
  OK(qela_get_versions(&(qela_versions){.size = sizeof(qela_versions)})),
      OK(qela_set_log_callback(on_log, NULL, QELA_LOG_ALL)), OK(qela_set_error_callback(NULL, NULL)),
      OK(qela_set_credentials_callback(NULL, NULL));
  OK(qela_open(&(qela_options)QELA_OPTIONS_INIT, &service)), OK(qela_retain(service)), OK(qela_close(service)),
      OK(qela_lock(service)), OK(qela_save(service)), OK(qela_load(service)), OK(qela_unlock(service)),
      OK(qela_start(service, on_change, NULL)), OK(qela_stop(service)), OK(qela_create_location(service, &one));
  OK(qela_location_set_id(one, id)), OK(qela_location_get_id(one, TEXT)), OK(qela_location_set_name(one, L"Office")),
      OK(qela_location_get_name(one, TEXT)), OK(qela_location_set_note(one, L"1st floor")),
      OK(qela_location_get_note(one, TEXT)), OK(qela_location_set_enabled(one, 1)),
      OK(qela_location_is_enabled(one, &flag)), OK(qela_location_set_adapters(one, adapters, 1)),
      OK(qela_location_get_adapters(one, adapters, &count)), OK(qela_location_clear_criteria(one)),
      OK(qela_location_add_criterion(one, kind, gateway)), OK(qela_location_get_criteria(one, &all)),
      OK(qela_location_remove_criterion(one, kind, gateway)), OK(qela_location_to_bytes(one, bytes, &length)),
      OK(qela_location_from_bytes(one, bytes, length));
  OK(qela_criteria_count(all, &count)), OK(qela_criteria_at(all, 0, &kind, TEXT)),
      OK(qela_criteria_text(all, kind, 0, TEXT)), OK(qela_criteria_flag(all, QELA_CRITERION_ZELT_REACHABLE, &flag)),
      length = sizeof bytes, OK(qela_criteria_to_bytes(all, bytes, &length)),
      OK(qela_criteria_from_bytes(all, bytes, length)), OK(qela_criteria_release(all));
  OK(qela_remove_all_locations(service)), OK(qela_add_location(service, one)), OK(qela_update_location(service, one)),
      OK(qela_get_location(service, id, &copy)), OK(qela_location_release(copy)),
      OK(qela_get_current_locations(service, &set)), OK(qela_locations_release(set)),
      OK(qela_get_locations(service, &set)), OK(qela_locations_count(set, &count)),
      OK(qela_locations_at(set, 0, &copy)), OK(qela_location_release(copy)), OK(qela_locations_find(set, id, &copy)),
      OK(qela_location_release(copy)), length = sizeof bytes, OK(qela_locations_to_bytes(set, bytes, &length)),
                                       OK(qela_locations_release(set)), OK(qela_create_locations(service, &set)),
                                       OK(qela_locations_from_bytes(set, bytes, length)),
                                       OK(qela_locations_release(set)), OK(qela_remove_location(service, id));
  OK(qela_match_addresses(service, &gateway, 1, QELA_ADDRESS_SINGLE, gateway, L"", &flag)),
      OK(qela_match_adapter_addresses(service, QELA_ADDRESS_SINGLE, gateway, L"", &flag)),
      OK(qela_is_adapter_media_type(service, QELA_MEDIA_WIRED, adapters, 1, &flag)),
      OK(qela_get_mac_address(service, 0, TEXT)), OK(qela_location_release(one)), OK(qela_close(service));
  puts(s_failed ? "FAILED" : "every function was called");
  return s_failed;
}
