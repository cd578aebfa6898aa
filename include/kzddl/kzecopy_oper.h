/**
 * @file
 * RECEIVE COPY RESULTS: what third-party copy a device supports.
 *
 * The command travels by the legacy request on every machine, and the kernel tells that nothing of
 * host errors. When it times out or its path dies, do_rcv_copy_results() returns 0 with 4 zeros;
 * do_operating_parameters() finds these too short, and asks for the mode page. By do_scsi() the
 * result tells host errors (but not on IA-64); do_convert_to_rcr_oper_parm() takes the reply.
 */
#ifndef KZDDL_KZECOPY_OPER_H
#define KZDDL_KZECOPY_OPER_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/** Type codes that a record holds at most. */
#define KZDDL_RCR_MAX_CODES 64

/** Operating parameters of a copy manager, in host byte order. */
typedef struct rcr_oper_parm {
  uint32_t available_data;                    /**< 105 when built from the mode page */
  uint16_t max_target_descriptor_count;       /**< of one copy */
  uint16_t max_segment_descriptor_count;      /**< of one copy */
  uint32_t max_descriptor_list_length;        /**< bytes */
  uint32_t max_segment_length;                /**< bytes */
  uint32_t max_inline_data_length;            /**< bytes */
  uint32_t held_data_limit;                   /**< bytes; 0 when built from the mode page */
  uint32_t max_stream_device_transfer_size;   /**< bytes; 0 when built from the mode page */
  uint8_t max_concurrent_copies;              /**< at a time */
  uint8_t data_segment_granularity;           /**< power of two */
  uint8_t inline_data_granularity;            /**< power of two */
  uint8_t held_data_granularity;              /**< power of two */
  uint8_t implemented_descriptor_list_length; /**< number of type codes that follow */
  uint8_t implemented_descriptor_type_codes[KZDDL_RCR_MAX_CODES]; /**< of descriptors */
} rcr_oper_parm;

/**
 * Reads the operating parameters with RECEIVE COPY RESULTS or, where that fails, the changeable
 * values of mode page 0x0E.
 *
 * @param path    the device
 * @param record  receives a record that the caller releases with `free`; null or untouched on
 *                failure
 * @return 0; otherwise the result of do_mode_sense(), or -1 when the page is too short or memory
 *         is short
 */
KZDDL_API int do_operating_parameters(odh *path, rcr_oper_parm **record);

/**
 * Sends RECEIVE COPY RESULTS by the legacy request, always through the control node.
 *
 * @param path            the device, of which `dev` is used
 * @param unused1         ignored; callers pass 0
 * @param service_action  CDB byte 1; 3 asks for the operating parameters
 * @param list_id         CDB byte 2
 * @param alloc_length    allocation length in the CDB, low 24 bits; at most 255 bytes come back
 * @param unused2         ignored; callers pass 0
 * @param length          receives the reply's length, low byte of (byte 3 + 4); 255 when the
 *                        command failed
 * @param data            receives a buffer of that length, which the caller releases with `free`;
 *                        untouched on failure
 * @return 0; `errno` of a failed request; the negated status, or -19 without a control node; 12
 *         when memory is short
 */
KZDDL_API int do_rcv_copy_results(odh *path, int unused1, unsigned char service_action,
                                  unsigned char list_id, int alloc_length, int unused2,
                                  uint32_t *length, unsigned char **data);

/**
 * Converts an operating parameters reply.
 *
 * @param reply   the reply, of which nothing past `length` is read
 * @param length  its length in bytes
 * @param record  receives a record that the caller releases with `free`; type codes beyond the
 *                reply or beyond KZDDL_RCR_MAX_CODES are left out
 * @return 0; -1 with `*record` untouched for fewer than 43 bytes; -1 with null, and a message on
 *         standard output, when memory is short
 */
KZDDL_API int do_convert_to_rcr_oper_parm(const unsigned char *reply, int length,
                                          rcr_oper_parm **record);

/** Converts mode page 0x0E, of at least 37 bytes; as do_convert_to_rcr_oper_parm(). */
KZDDL_API int do_convert_mode_sense_oper_parm_to_rcr_oper_parm(const unsigned char *page,
                                                               int length, rcr_oper_parm **record);

/** Prints a record under `name` and a buffer length on standard output; returns 0. */
KZDDL_API int do_display_rcv_copy_results_operating_parameters(const char *name, unsigned buflen,
                                                               const rcr_oper_parm *record);

KZDDL_END_DECLS

#endif
