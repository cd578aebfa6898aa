// An array support library in little: what the discovery layer asks of one, and how it answers.
#include "kzexample_asl.h"

#include <kzddl/ddl_name_value_api.h>
#include <kzddl/ddlts.h>
#include <kzddl/kzinquiry.h>
#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

enum { binary_type = 1, identification_offset = 8, identification_size = 28 };

// The discovery layer reads the flags and the mutex of a handler record and leaves the rest to
// the library. The lead brings the mutex, at byte 68 of the record, to an aligned address.
static struct {
  uint32_t lead;
  unsigned char record[KZDDL_HANDLER_MUTEX];
  pthread_mutex_t mutex;
} handler = {
    .record = {[KZDDL_HANDLER_FLAGS] = KZDDL_HANDLER_SERIALISE},
    .mutex = PTHREAD_MUTEX_INITIALIZER,
};
_Static_assert(offsetof(__typeof__(handler), mutex) - offsetof(__typeof__(handler), record) ==
                   KZDDL_HANDLER_MUTEX,
               "the mutex is found at its place in the record");

void *get_handler(void) { return handler.record; }

static int32_t array_type(char **pair) { return nv_set_value(pair, "ARRAY_TYPE", "RAID-5"); }

static int32_t power_state(char **pair) {
  char *supplies[2] = {NULL, NULL};
  int32_t result = -1;
  if (ts_build(KZDDL_TS_TEXT, 8, "PSU 0 ok", &supplies[0]) == 0 &&
      ts_build(KZDDL_TS_TEXT, 12, "PSU 1 absent", &supplies[1]) == 0) {
    result = nv_set_mult_value(pair, "POWER_STATE", supplies[0], supplies[1], (char *)NULL);
  }
  free(supplies[0]);
  free(supplies[1]);
  return result;
}

// Any byte may stand in the answer, a zero or a "," too: it travels as a typed string.
static int32_t inquiry_id(odh *device, char **pair) {
  int length = 0;
  unsigned char *data = NULL;
  if (do_inquiry(device, 0, 0, 0, &length, &data) != 0) return -1;
  char *typed = NULL;
  int32_t result = -1;
  if (length >= identification_offset + identification_size &&
      ts_build(binary_type, identification_size, data + identification_offset, &typed) == 0) {
    result = nv_set_value(pair, "INQUIRY_ID", typed);
  }
  free(typed);
  free(data);
  return result;
}

int32_t get_dynamic_attr(dip disk, const char *attr, char ***list) {
  char *pair = NULL;
  int32_t result = -1;
  if (strcmp(attr, "ARRAY_TYPE") == 0) result = array_type(&pair);
  if (strcmp(attr, "POWER_STATE") == 0) result = power_state(&pair);
  if (strcmp(attr, "INQUIRY_ID") == 0) result = inquiry_id(disk.odh, &pair);
  if (result != 0) return result;

  // The list holds a copy; the caller releases it.
  const int32_t pairs = nv_create_list(list, pair, (char *)NULL);
  nv_free(pair);
  return pairs == 1 ? 0 : -1;
}
