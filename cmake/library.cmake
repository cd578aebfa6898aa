# The shared library: needs the C library alone at run time.
add_library(kzddl SHARED
  misc/kzgeom.cpp
  misc/kzmisc_geometry.cpp
  misc/kzmisc_identity.cpp
  misc/kzmisc_log.cpp
  misc/kzmisc_text.cpp
  misc/solgeom.cpp
  nv/ddl_name_value_api.cpp
  nv/ddlts.cpp
  property/ddlproperty.cpp
  property/ddlproperty_asso.cpp
  property/ddlproperty_dynamic.cpp
  property/ddlproperty_links.cpp
  property/ddlproperty_store.cpp
  property/ddlproperty_sys.cpp
  property/ddlskiplist.cpp
  property/fetch.cpp
  property/link_lookup.cpp
  property/lock_order.cpp
  property/locks.cpp
  property/reader_slots.cpp
  property/value_index.cpp
  scsi/ddlalua.cpp
  scsi/kzdiskio.cpp
  scsi/kzecopy.cpp
  scsi/kzecopy_oper.cpp
  scsi/kzinquiry.cpp
  scsi/kzmisc_sys.cpp
  scsi/kzmodeselect.cpp
  scsi/kzmodesense.cpp
  scsi/kzpgr.cpp
  scsi/kzreadcap.cpp
  scsi/kzrtpg.cpp
  scsi/kzscsi.cpp
  scsi/kzscsilib.cpp
  scsi/kzstpg.cpp
  scsi/kztur.cpp
)
add_library(kzddl::kzddl ALIAS kzddl)

set_target_properties(kzddl PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/kzddl.map
)
target_include_directories(kzddl PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
)
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|i.86")
  # The old floating-point unit keeps more digits than a float or double holds.
  target_compile_options(kzddl PRIVATE -msse2 -mfpmath=sse)
endif()
if(NOT KZDDL_SANITIZE)
  # Tested as users have it, and its interface read from its debug information (scripts/check-abi),
  # whatever quick options a preset has for the rest.
  target_compile_options(kzddl PRIVATE $<$<CONFIG:RelWithDebInfo>:-O2> $<$<CONFIG:RelWithDebInfo>:-g>)
endif()
if(KZDDL_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_definitions(kzddl PRIVATE KZDDL_CHECK_LOCKS)
endif()
target_compile_options(kzddl PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics
  # Compilers make one calloc of malloc and memset. Blocks that callers free come from malloc: a
  # program may have put its own before the C library's.
  -fno-builtin-malloc)
# A program may also put functions of its own before open, fopen and stat: the library uses the
# plain names, which in 64 bits work on any file. In 32 bits stat needs large files for that.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set_source_files_properties(
    misc/kzgeom.cpp misc/kzmisc_geometry.cpp misc/kzmisc_identity.cpp property/fetch.cpp
    PROPERTIES COMPILE_DEFINITIONS _FILE_OFFSET_BITS=64)
endif()
target_link_options(kzddl PRIVATE
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/kzddl.map
  # The C++ driver offers its run-time libraries; none may be needed (a test looks).
  -Wl,--as-needed -static-libgcc -Wl,-z,relro,-z,now
)
if(NOT KZDDL_SANITIZE)  # a sanitizer's own functions are the program's to bring
  target_link_options(kzddl PRIVATE -Wl,-z,defs)
endif()
target_link_libraries(kzddl PRIVATE $<BUILD_INTERFACE:kzddl_base_options>)
