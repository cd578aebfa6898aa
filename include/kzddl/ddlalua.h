/**
 * @file
 * Decoders of what a device says of its target port groups and of its identity.
 *
 * They read the caller's buffers only, allocate nothing, and may be called from any thread.
 */
#ifndef KZDDL_DDLALUA_H
#define KZDDL_DDLALUA_H

#include "kzddl/api.h"

KZDDL_BEGIN_DECLS

/** Bytes of the NAA text of get_dev_id_page(), with its NUL. */
#define KZDDL_NAA_TEXT_SIZE 33

/**
 * Finds the asymmetric access state of a target port group.
 *
 * @param reply  a reply of do_rtpg(): 255 bytes, of which what its length promises is walked
 * @param group  number of the group
 * @return the state (0 to 15) in the group's first descriptor; -1 when the reply has none
 */
KZDDL_API int get_owner_state(const unsigned char *reply, int group);

/** As get_owner_state(), but returns 0x80 when the group is preferred and 0 when it is not. */
KZDDL_API int get_pref_state(const unsigned char *reply, int group);

/** Returns 0x80 when some group other than `group` is preferred, else 0. */
KZDDL_API int get_other_pref_state(const unsigned char *reply, int group);

/**
 * Finds the designators of a Device Identification page that describe a path. An output is
 * written only when its designator is found; the last one of its kind wins.
 *
 * @param page           the page, read to its end: byte 3 + 4 bytes, at most 255
 * @param naa            KZDDL_NAA_TEXT_SIZE bytes or null; receives 32 upper-case digits: the 16
 *                       bytes from the NAA designator on, whatever its length; zero past the page
 * @param port_group     receives the target port group
 * @param relative_port  receives the relative target port identifier
 * @param unit_group     receives the logical unit group
 * @return always 0
 */
KZDDL_API int get_dev_id_page(const unsigned char *page, char *naa, unsigned *port_group,
                              unsigned *relative_port, unsigned *unit_group);

KZDDL_END_DECLS

#endif
