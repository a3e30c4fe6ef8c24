/* The location-awareness library for hosts in C, and for every compiler whose programs call C. A host in ten lines:
 *
 *   #include <qela.h>
 *   #include <stdio.h>
 *
 *   static void QELA_CALL on_change(qela_locations* current, void* context) {
 *     uint32_t count = 0;
 *     if (qela_locations_count(current, &count) == QELA_STATUS_OK) printf("%s: %u\n", (const char*)context, count);
 *   }
 *   int main(void) {
 *     qela_options options = QELA_OPTIONS_INIT;
 *     qela_service* service = NULL;
 *     qela_status status = qela_open(&options, &service);
 *     if (status == QELA_STATUS_OK) status = qela_start(service, on_change, "current locations");
 *     if (status != QELA_STATUS_OK) return fprintf(stderr, "%s\n", qela_status_text(status)), 1;
 *     getchar();
 *     return qela_close(service) != QELA_STATUS_OK;
 *   }
 *
 * Rules that hold for every function:
 *
 * - It answers with a status. Nothing is thrown, and nothing ends the process. What it would have written is left as it
 *   was when it fails, but for lengths (below) and handles, which are then null.
 * - Handles are numbers in the shape of pointers, which are looked up and never followed: a null, closed or foreign
 *   one, or one of another kind, is QELA_STATUS_INVALID_HANDLE. The numbers are not used again.
 * - Nothing is allocated on one side and freed on the other. Texts and lists are copied into the caller's memory, and
 *   into the library's before a function returns.
 * - Texts are UTF-16 in wchar_t, which every compiler for Windows makes 16 bits wide, so that L"" texts and the texts
 *   of Windows need no cast; a text that is given ends with a NUL and must not be null.
 * - A text, byte or list that is asked for comes with its length: in, the room at the buffer; out, what is needed,
 *   which for a text counts the NUL. Too little room, or a null buffer, is QELA_STATUS_BUFFER_TOO_SMALL, with nothing
 *   copied.
 * - Every struct begins with its size, which the caller sets to sizeof. Another size than that of this version is
 *   QELA_STATUS_INVALID_SIZE.
 * - Functions of a service may be called from any thread, also from inside every callback. A location, a criteria set
 *   or a collection is used by one thread at a time; releasing it is always safe. Whoever reads it in a moment when
 *   another thread releases it still reads it whole.
 * - "Lock" means that the function holds the service's recursive lock while it works, and that it answers
 *   QELA_STATUS_BUSY when it would have to wait for that longer than call_timeout_ms. The lock is held through whole
 *   calculations, network probes included, which take tens of seconds when a host is silent and far longer when it is
 *   made to be slow. "Calculates" means that the function makes such a calculation itself, once it has the lock: that
 *   time has no limit of its own.
 *
 * QeLaC.dll stays in the process once a service was opened: the library behind it keeps its one set, with the lock. A
 * process that uses this interface must not use the library's C++ interface beside it. */
#ifndef QELA_H
#define QELA_H

#include <stddef.h>
#include <stdint.h>

#if defined(QELA_BUILDING)
#define QELA_API __declspec(dllexport)
#else
#define QELA_API __declspec(dllimport)
#endif
#define QELA_CALL __cdecl

#ifdef __cplusplus
extern "C" {
#endif

typedef char qela_wchar_t_has_16_bits[sizeof(wchar_t) == 2 ? 1 : -1];

typedef struct qela_service qela_service;
typedef struct qela_location qela_location;
typedef struct qela_criteria qela_criteria;
typedef struct qela_locations qela_locations;

typedef enum qela_status {
  QELA_STATUS_OK = 0,
  QELA_STATUS_INVALID_ARGUMENT = 1, /* a null pointer, or a value that the function does not know */
  QELA_STATUS_INVALID_SIZE = 2,     /* the struct's size is not that of this version */
  QELA_STATUS_INVALID_HANDLE = 3,   /* null, closed, foreign, or of another kind */
  QELA_STATUS_BUFFER_TOO_SMALL = 4, /* the length tells what is needed */
  QELA_STATUS_BUSY = 5,             /* the lock, or a callback that runs, took longer than call_timeout_ms */
  QELA_STATUS_OUT_OF_MEMORY = 6,    /* nothing was changed */
  QELA_STATUS_NOT_FOUND = 7,        /* no such entry, or nothing is stored */
  QELA_STATUS_DUPLICATE = 8,        /* it is there already */
  QELA_STATUS_BAD_DATA = 9,         /* bytes that cannot be read, or texts that cannot be written or copied */
  QELA_STATUS_NOT_SAVED = 10,       /* changed in memory, but not written */
  QELA_STATUS_NOT_STARTED = 11,     /* qela_stop without qela_start */
  QELA_STATUS_NOT_LOCKED = 12,      /* qela_unlock by a thread that has not locked */
  QELA_STATUS_ALREADY_OPEN = 13,    /* a process has one service at a time */
  QELA_STATUS_NOT_SUPPORTED = 14,   /* the host's own library takes the adapter's place */
  QELA_STATUS_SYSTEM_ERROR = 15,    /* Windows refused what is needed */
  QELA_STATUS_INTERNAL_ERROR = 16,
  QELA_STATUS_HAS_32_BITS = 0x7fffffff /* never answered */
} qela_status;

/* One English sentence, for every value. It stays valid. */
QELA_API const char* QELA_CALL qela_status_text(qela_status status);

/* Versions of the two libraries as they were loaded: major, minor, patch. */
typedef struct qela_versions {
  uint32_t size;
  uint32_t kit[3];     /* QeLaC.dll */
  uint32_t library[3]; /* QeLaLib.dll */
} qela_versions;
QELA_API qela_status QELA_CALL qela_get_versions(qela_versions* versions);

/* ---- The process: log, credentials, errors ----------------------------------------------------------------------
 *
 * Each callback is one a process, may be set before a service is opened, and is taken away by a null pointer. When the
 * function returns, the callback before is no longer running, unless this very thread is inside it. A callback must not
 * throw. What the library does inside it on the same thread (the lines that its calls log) does not come back to it. */

/* One event of the log. The texts live as long as the call. */
typedef struct qela_log_record {
  uint32_t size;
  int32_t severity; /* a qela_log_level; lower is graver */
  int32_t line;
  uint32_t reserved;
  const char* file; /* this and line: where in the library's sources */
  const char* source;
  const char* component;
  const wchar_t* text;
} qela_log_record;

typedef enum qela_log_level {
  QELA_LOG_ERRORS = 3,
  QELA_LOG_ALL = 8,
  QELA_LOG_HAS_32_BITS = 0x7fffffff /* never used */
} qela_log_level;

/* Called on the thread that logs, by several at once, often with the service's lock held: be quick. */
typedef void(QELA_CALL* qela_log_callback)(const qela_log_record* record, void* context);

/* Hands every event whose severity is `level` or graver to the callback, in place of standard error and the debugger.
 * Without a callback lines go to standard error or, where the process has none, to the debugger's output. The file of
 * the environment variable LOGLIB_FILE gets them all the same. QELA_STATUS_NOT_SUPPORTED: LogLib.dll is not the kit's.
 */
QELA_API qela_status QELA_CALL qela_set_log_callback(qela_log_callback callback, void* context, qela_log_level level);

#define QELA_USER_NAME_UNITS 514 /* the longest that Windows takes, with the NUL */
#define QELA_PASSWORD_UNITS 257

typedef struct qela_credentials {
  uint32_t size;
  wchar_t user_name[QELA_USER_NAME_UNITS];
  wchar_t password[QELA_PASSWORD_UNITS];
} qela_credentials;

/* Writes what a proxy is to be told into `credentials`, which comes empty and is wiped afterwards, and answers
 * QELA_STATUS_OK; any other answer means that there are none. Called on the thread that calculates, with the service's
 * lock held, whenever a domain is asked for through the interactive user's proxy. */
typedef qela_status(QELA_CALL* qela_credentials_callback)(qela_credentials* credentials, void* context);

/* QELA_STATUS_NOT_SUPPORTED: blframework.dll is not the kit's. */
QELA_API qela_status QELA_CALL qela_set_credentials_callback(qela_credentials_callback callback, void* context);

/* Told, as a line without a line break, of bytes that could not be read or written. The text lives as long as the call.
 * Called on the thread that reads or writes. */
typedef void(QELA_CALL* qela_error_callback)(const char* text, void* context);
QELA_API qela_status QELA_CALL qela_set_error_callback(qela_error_callback callback, void* context);

/* ---- The service ------------------------------------------------------------------------------------------------ */

#define QELA_WAIT_FOREVER 0xffffffffu
#define QELA_DEFAULT_CALL_TIMEOUT_MS 5000u

/* Saves after every edit, before the function that edits returns. Without it, edits count and are stored once
 * qela_save is called. */
#define QELA_OPEN_AUTO_SAVE 0x1u
/* Does not load the set again when somebody else has changed the stored one. */
#define QELA_OPEN_NO_RELOAD 0x2u

typedef struct qela_options {
  uint32_t size;
  uint32_t flags;           /* QELA_OPEN_ values, or 0 */
  uint32_t call_timeout_ms; /* 0: QELA_DEFAULT_CALL_TIMEOUT_MS; QELA_WAIT_FOREVER: no limit */
  uint32_t quiet_ms; /* a change is told when nothing has happened for so long, or ten times that after the first */
  /* The host's lock: a Win32 CRITICAL_SECTION that lives as long as the process, or null for one of the library's own.
   * The library keeps it from the first open of a process on; every later open must give the same. While the host holds
   * it, the service stands still. */
  void* critical_section;
} qela_options;

#define QELA_OPTIONS_INIT {sizeof(qela_options), 0, 0, 0, NULL}

/* Opens the process's service: reads the stored set and calculates. A set that cannot be read leaves an empty service
 * or what could be read; whether it could tells qela_load. QELA_STATUS_ALREADY_OPEN until the last owner has closed the
 * earlier one. Lock; calculates. */
QELA_API qela_status QELA_CALL qela_open(const qela_options* options, qela_service** service);

/* Makes one more owner of the service, who calls qela_close as well. */
QELA_API qela_status QELA_CALL qela_retain(qela_service* service);

/* Drops one owner. The last one stops the service as qela_stop does, gives up what this thread has locked with
 * qela_lock, and ends the handle; locations and collections stay usable until they are released. Edits that were not
 * saved are lost. QELA_STATUS_BUSY: a callback still runs on another thread; the service is stopped, the handle is not
 * closed. May be called inside a callback. */
QELA_API qela_status QELA_CALL qela_close(qela_service* service);

/* Told which locations are current, in stored order. `current` is a copy for this call and is released after it; what
 * is read out of it with qela_locations_at stays. Called on a thread of its own, one call at a time, without any lock.
 */
typedef void(QELA_CALL* qela_change_callback)(qela_locations* current, void* context);

/* Starts discovery. The callback is called soon with the locations that are current now, none included, and then with
 * every other list (judged by IDs) that a change of addresses, a save, a load or an edit by somebody else leads to; of
 * changes within the quiet time it is told the last. A second start replaces the callback, which is told anew. What the
 * registry's value becomes while discovery runs is loaded, unless QELA_OPEN_NO_RELOAD was given or edits wait to be
 * saved; a value that was removed changes nothing. QELA_STATUS_BUSY: the callback before still runs on another thread;
 * the new one is set if discovery was running, else nothing was started. */
QELA_API qela_status QELA_CALL qela_start(qela_service* service, qela_change_callback callback, void* context);

/* Stops discovery, and waits for a callback that runs on another thread: at most call_timeout_ms, then it answers
 * QELA_STATUS_BUSY, and may be called again. Once it has answered QELA_STATUS_OK no callback runs or will run. For the
 * discovery thread itself it waits a second at most. */
QELA_API qela_status QELA_CALL qela_stop(qela_service* service);

/* Replaces the set with the stored one. QELA_STATUS_NOT_FOUND: none is stored, the set is as it was.
 * QELA_STATUS_BAD_DATA: it cannot be read whole, the set holds what could be read. Lock; calculates. */
QELA_API qela_status QELA_CALL qela_load(qela_service* service);

/* Stores the set. QELA_STATUS_NOT_SAVED: what is current was calculated, but writing failed. Lock; calculates. */
QELA_API qela_status QELA_CALL qela_save(qela_service* service);

/* Takes the lock, so that several calls see one state, and gives it back. It is recursive. Lock (qela_lock). */
QELA_API qela_status QELA_CALL qela_lock(qela_service* service);
QELA_API qela_status QELA_CALL qela_unlock(qela_service* service);

/* Edits. They take a copy of the location. QELA_STATUS_DUPLICATE: its ID is stored already. QELA_STATUS_NOT_FOUND: no
 * stored location has the ID. QELA_STATUS_BAD_DATA: it was read from bytes and holds an entry twice. With
 * QELA_OPEN_AUTO_SAVE: saves, so QELA_STATUS_NOT_SAVED as qela_save. Lock; calculates only when it saves. */
QELA_API qela_status QELA_CALL qela_add_location(qela_service* service, qela_location* location);
QELA_API qela_status QELA_CALL qela_update_location(qela_service* service, qela_location* location);
QELA_API qela_status QELA_CALL qela_remove_location(qela_service* service, const wchar_t* id);
QELA_API qela_status QELA_CALL qela_remove_all_locations(qela_service* service);

/* A copy of the first stored location with this ID (letter case counts), or QELA_STATUS_NOT_FOUND; of the whole set; of
 * those that are current. The caller releases it. Lock. */
QELA_API qela_status QELA_CALL qela_get_location(qela_service* service, const wchar_t* id, qela_location** location);
QELA_API qela_status QELA_CALL qela_get_locations(qela_service* service, qela_locations** locations);
QELA_API qela_status QELA_CALL qela_get_current_locations(qela_service* service, qela_locations** locations);

/* ---- Addresses -------------------------------------------------------------------------------------------------- */

typedef enum qela_address_kind {
  QELA_ADDRESS_SINGLE = 0,    /* the same text as `first` */
  QELA_ADDRESS_SUBNET = 1,    /* inside the subnet "address/prefix" of `first` */
  QELA_ADDRESS_RANGE = 3,     /* from `first` to `second`, both included */
  QELA_ADDRESS_ANY_IP_V4 = 7, /* as a range; the caller gives the whole family */
  QELA_ADDRESS_ANY_IP_V6 = 8,
  QELA_ADDRESS_HAS_32_BITS = 0x7fffffff /* never used */
} qela_address_kind;

/* Writes 1 when any of the addresses satisfies what the kind and the texts ask for, else 0; other kinds match nothing.
 * `addresses` may be null when `count` is 0. A kind that needs no `second` takes an empty text. */
QELA_API qela_status QELA_CALL qela_match_addresses(qela_service* service, const wchar_t* const* addresses,
                                                    uint32_t count, qela_address_kind kind, const wchar_t* first,
                                                    const wchar_t* second, int32_t* matches);

/* The same for the addresses of the adapters that the last calculation saw. Lock. */
QELA_API qela_status QELA_CALL qela_match_adapter_addresses(qela_service* service, qela_address_kind kind,
                                                            const wchar_t* first, const wchar_t* second,
                                                            int32_t* matches);

#define QELA_MEDIA_WIRED 1u
#define QELA_MEDIA_WIRELESS 2u
#define QELA_MEDIA_VIRTUAL 4u

/* Writes 1 when an adapter of the last calculation whose interface index is listed has a media type of the mask. The
 * list may be null when `count` is 0. Lock. */
QELA_API qela_status QELA_CALL qela_is_adapter_media_type(qela_service* service, uint32_t mask,
                                                          const uint32_t* if_indexes, uint32_t count, int32_t* matches);

/* The physical address at `index` of the adapters of the last calculation, such as "00-1A-2B-3C-4D-5E", or
 * QELA_STATUS_NOT_FOUND behind the last. Whoever walks them holds qela_lock. Lock. */
QELA_API qela_status QELA_CALL qela_get_mac_address(qela_service* service, uint32_t index, wchar_t* text,
                                                    uint32_t* length);

/* ---- A location -------------------------------------------------------------------------------------------------
 *
 * Every one is a private copy: what is set counts for the service once qela_add_location or qela_update_location has
 * taken it. None of these functions takes the lock. */

typedef enum qela_criterion_kind {
  QELA_CRITERION_DNS_SUFFIX = 0,      /* of the connection; labels may hold "*" */
  QELA_CRITERION_DEFAULT_GATEWAY = 1, /* these addresses are texts */
  QELA_CRITERION_DHCP_SERVER = 2,
  QELA_CRITERION_DNS_SERVER = 3,
  QELA_CRITERION_PRIMARY_WINS = 4,
  QELA_CRITERION_SECONDARY_WINS = 5,
  QELA_CRITERION_REGISTRY_KEY = 6,        /* HIVE\SubKey\ValueName or HIVE\SubKey\ValueName=Data */
  QELA_CRITERION_DOMAIN_REACHABLE = 7,    /* a host that must answer over HTTPS */
  QELA_CRITERION_ZELT_REACHABLE = 8,      /* the management server must be known to DNS; has no text */
  QELA_CRITERION_HAS_32_BITS = 0x7fffffff /* never used */
} qela_criterion_kind;

/* A new location with a fresh ID, enabled, without criteria, not stored. The caller releases it. */
QELA_API qela_status QELA_CALL qela_create_location(qela_service* service, qela_location** location);
QELA_API qela_status QELA_CALL qela_location_release(qela_location* location);

QELA_API qela_status QELA_CALL qela_location_get_id(qela_location* location, wchar_t* text, uint32_t* length);
QELA_API qela_status QELA_CALL qela_location_set_id(qela_location* location, const wchar_t* id);
QELA_API qela_status QELA_CALL qela_location_get_name(qela_location* location, wchar_t* text, uint32_t* length);
QELA_API qela_status QELA_CALL qela_location_set_name(qela_location* location, const wchar_t* name);
QELA_API qela_status QELA_CALL qela_location_get_note(qela_location* location, wchar_t* text, uint32_t* length);
QELA_API qela_status QELA_CALL qela_location_set_note(qela_location* location, const wchar_t* note);
QELA_API qela_status QELA_CALL qela_location_is_enabled(qela_location* location, int32_t* enabled);
QELA_API qela_status QELA_CALL qela_location_set_enabled(qela_location* location, int32_t enabled);

/* Adds or removes one criterion; QELA_CRITERION_ZELT_REACHABLE takes no text, so null will do. An IPv4-mapped IPv6
 * address in full form counts as the IPv4 address. QELA_STATUS_INVALID_ARGUMENT for another kind,
 * QELA_STATUS_DUPLICATE, QELA_STATUS_NOT_FOUND. */
QELA_API qela_status QELA_CALL qela_location_add_criterion(qela_location* location, qela_criterion_kind kind,
                                                           const wchar_t* text);
QELA_API qela_status QELA_CALL qela_location_remove_criterion(qela_location* location, qela_criterion_kind kind,
                                                              const wchar_t* text);
QELA_API qela_status QELA_CALL qela_location_clear_criteria(qela_location* location);

/* A copy of the criteria, which the caller releases. */
QELA_API qela_status QELA_CALL qela_location_get_criteria(qela_location* location, qela_criteria** criteria);

/* The interface indexes of the adapters that matched when the location was last found current. */
QELA_API qela_status QELA_CALL qela_location_get_adapters(qela_location* location, uint32_t* indexes, uint32_t* count);
QELA_API qela_status QELA_CALL qela_location_set_adapters(qela_location* location, const uint32_t* indexes,
                                                          uint32_t count);

/* The byte form, the same for a location, a criteria set and a collection. QELA_STATUS_BAD_DATA: a text is not valid
 * UTF-16; the bytes are not such an object, which is then as it was, or hold a value of the wrong type, before which
 * everything was taken. The error callback is told. */
QELA_API qela_status QELA_CALL qela_location_to_bytes(qela_location* location, void* bytes, uint32_t* length);
QELA_API qela_status QELA_CALL qela_location_from_bytes(qela_location* location, const void* bytes, uint32_t length);

/* ---- A location's criteria --------------------------------------------------------------------------------------
 *
 * All DNS suffixes first, then the other kinds in the order of their numbers, each in the order in which they were
 * added. Entries of one kind are alternatives; kinds must all hold. */

QELA_API qela_status QELA_CALL qela_criteria_release(qela_criteria* criteria);
QELA_API qela_status QELA_CALL qela_criteria_count(qela_criteria* criteria, uint32_t* count);

/* The entry at `index` of all, or QELA_STATUS_NOT_FOUND behind the last. The management server's text is empty. The
 * kind is written also when the buffer is too small. */
QELA_API qela_status QELA_CALL qela_criteria_at(qela_criteria* criteria, uint32_t index, qela_criterion_kind* kind,
                                                wchar_t* text, uint32_t* length);

/* The entry at `index` of one kind that has texts, or QELA_STATUS_NOT_FOUND behind the last. */
QELA_API qela_status QELA_CALL qela_criteria_text(qela_criteria* criteria, qela_criterion_kind kind, uint32_t index,
                                                  wchar_t* text, uint32_t* length);

/* Whether the kind without a text, QELA_CRITERION_ZELT_REACHABLE, is set. */
QELA_API qela_status QELA_CALL qela_criteria_flag(qela_criteria* criteria, qela_criterion_kind kind, int32_t* set);

QELA_API qela_status QELA_CALL qela_criteria_to_bytes(qela_criteria* criteria, void* bytes, uint32_t* length);
QELA_API qela_status QELA_CALL qela_criteria_from_bytes(qela_criteria* criteria, const void* bytes, uint32_t length);

/* ---- A collection of locations ---------------------------------------------------------------------------------- */

/* A new, empty collection, for bytes to be read into. The caller releases it. */
QELA_API qela_status QELA_CALL qela_create_locations(qela_service* service, qela_locations** locations);
QELA_API qela_status QELA_CALL qela_locations_release(qela_locations* locations);
QELA_API qela_status QELA_CALL qela_locations_count(qela_locations* locations, uint32_t* count);

/* A copy of the location at `index`, or of the first with this ID; QELA_STATUS_NOT_FOUND. The caller releases it. */
QELA_API qela_status QELA_CALL qela_locations_at(qela_locations* locations, uint32_t index, qela_location** location);
QELA_API qela_status QELA_CALL qela_locations_find(qela_locations* locations, const wchar_t* id,
                                                   qela_location** location);

QELA_API qela_status QELA_CALL qela_locations_to_bytes(qela_locations* locations, void* bytes, uint32_t* length);
QELA_API qela_status QELA_CALL qela_locations_from_bytes(qela_locations* locations, const void* bytes, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
