#include <qela.h>

const char* QELA_CALL qela_status_text(qela_status status) {
  switch (status) {
    case QELA_STATUS_OK:
      return "The call succeeded.";
    case QELA_STATUS_INVALID_ARGUMENT:
      return "An argument is null or has a value that is not known.";
    case QELA_STATUS_INVALID_SIZE:
      return "The size in a struct is not the one that this version has.";
    case QELA_STATUS_INVALID_HANDLE:
      return "The handle is null, closed, or of another kind.";
    case QELA_STATUS_BUFFER_TOO_SMALL:
      return "The buffer is too small; the length tells what is needed.";
    case QELA_STATUS_BUSY:
      return "The service or a callback was busy for longer than the call may wait.";
    case QELA_STATUS_OUT_OF_MEMORY:
      return "There is not enough memory.";
    case QELA_STATUS_NOT_FOUND:
      return "There is no such entry.";
    case QELA_STATUS_DUPLICATE:
      return "The entry is there already.";
    case QELA_STATUS_BAD_DATA:
      return "Bytes cannot be read, or a text cannot be written.";
    case QELA_STATUS_NOT_SAVED:
      return "The locations could not be written to the registry.";
    case QELA_STATUS_NOT_STARTED:
      return "Discovery was not started.";
    case QELA_STATUS_NOT_LOCKED:
      return "This thread has not locked the service.";
    case QELA_STATUS_ALREADY_OPEN:
      return "The process has a service open already.";
    case QELA_STATUS_NOT_SUPPORTED:
      return "The host's own library takes the place of the kit's.";
    case QELA_STATUS_SYSTEM_ERROR:
      return "Windows refused a call that is needed.";
    case QELA_STATUS_INTERNAL_ERROR:
      return "An internal error happened.";
    case QELA_STATUS_HAS_32_BITS:
      break;
  }
  return "The status is not known.";
}
