/**
 * @file
 * The whole public interface.
 *
 * A thread that is cancelled (pthread_cancel, of the deferred type) inside the library leaves no
 * lock held, no descriptor open and no memory behind: the request waits until the function holds
 * none of these. Functions of the host that the library calls meanwhile are not cancelled either.
 */
#ifndef KZDDL_KZDDL_H
#define KZDDL_KZDDL_H

#include "kzddl/api.h"

#include "kzddl/array_support.h"
#include "kzddl/ddl_name_value_api.h"
#include "kzddl/ddlalua.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "kzddl/ddlproperty_dynamic.h"
#include "kzddl/ddlproperty_sys.h"
#include "kzddl/ddlskiplist.h"
#include "kzddl/ddlts.h"
#include "kzddl/kzdiskio.h"
#include "kzddl/kzecopy.h"
#include "kzddl/kzecopy_oper.h"
#include "kzddl/kzgeom.h"
#include "kzddl/kzinquiry.h"
#include "kzddl/kzmisc_geometry.h"
#include "kzddl/kzmisc_identity.h"
#include "kzddl/kzmisc_log.h"
#include "kzddl/kzmisc_sys.h"
#include "kzddl/kzmisc_text.h"
#include "kzddl/kzmodeselect.h"
#include "kzddl/kzmodesense.h"
#include "kzddl/kzpgr.h"
#include "kzddl/kzreadcap.h"
#include "kzddl/kzrtpg.h"
#include "kzddl/kzscsi.h"
#include "kzddl/kzscsilib.h"
#include "kzddl/kzstpg.h"
#include "kzddl/kztur.h"
#include "kzddl/odh.h"
#include "kzddl/solgeom.h"

#endif
