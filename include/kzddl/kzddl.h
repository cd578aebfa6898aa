/**
 * @file
 * The whole public interface.
 */
#ifndef KZDDL_KZDDL_H
#define KZDDL_KZDDL_H

#include "kzddl/api.h"

#include "kzddl/ddlproperty_sys.h"
#include "kzddl/kzinquiry.h"
#include "kzddl/kzmisc_identity.h"
#include "kzddl/kzmisc_log.h"
#include "kzddl/kzmisc_sys.h"
#include "kzddl/kzmisc_text.h"
#include "kzddl/kzscsi.h"
#include "kzddl/kzscsilib.h"
#include "kzddl/kztur.h"
#include "kzddl/odh.h"

#endif
