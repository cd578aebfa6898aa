// A host program in little: asks disks who they are, keeps the answers in the property database,
// has one attribute fetched when it is looked up, and shows everything from there.
//
// usage: kzexample_database [--library FILE] NODE...    FILE: an array support library
#include <dlfcn.h>
#include <kzddl/kzddl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { binary_type = 1 };

// A look-up in a list of values takes logarithmic time up to about 2 to the power of its levels.
static int32_t one_class(const char *name) {
  (void)name;
  return 0;
}
static int32_t twelve_levels(int32_t class) {
  (void)class;
  return 12;
}
static ddl_prop_table levels = {one_class, twelve_levels, twelve_levels};

// Stores a value of property `q`, and links it with value `x` of property `p`, which is there.
static int relate(const char *p, const char *x, const char *q, const char *y) {
  const char *const values[] = {y, NULL};
  if (set_property(q, values) < 0) return -1;
  return set_asso(p, x, q, y);
}

// The same for an address: it may hold zero bytes, so it travels as a typed string.
static int relate_address(const char *p, const char *x, const char *q, void *address) {
  char *typed = NULL;
  if (ts_build(binary_type, sizeof address, &address, &typed) != 0) return -1;
  const int result = relate(p, x, q, typed);
  free(typed);
  return result;
}

// Answers for the attribute CAPACITY of any disk, each time that it is looked up.
static int32_t get_capacity(dip disk, const char *attr, char ***list) {
  int length = 0;
  unsigned char *data = NULL;
  if (do_read_capacity(disk.odh, 0, 0, 0, &length, &data) != 0) return -1;
  const uint32_t last =
      (uint32_t)data[0] << 24 | (uint32_t)data[1] << 16 | (uint32_t)data[2] << 8 | data[3];
  free(data);
  if (last == UINT32_MAX) return -1;  // a larger disk: do_read_capacity_16() tells
  char blocks[32];
  snprintf(blocks, sizeof blocks, "%lu blocks", last + 1ul);
  char *pair = NULL;
  if (nv_set_value(&pair, attr, blocks) != 0) return -1;
  const int32_t pairs = nv_create_list(list, pair, (char *)NULL);
  nv_free(pair);
  return pairs == 1 ? 0 : -1;
}

// Asks the disk behind a node who it is, and stores what it says.
static int store_disk(const char *node) {
  odh path = {{0}, 0, 0, 0};
  if (strlen(node) >= sizeof path.devname) return -1;
  strcpy(path.devname, node);
  path.dev = path.blkdev = find_device_number(node);
  int length = 0;
  unsigned char *data = NULL;
  const int error = do_inquiry(&path, 0, 0, 0, &length, &data);
  if (error != 0) return error;
  char vendor[KZDDL_VID_SIZE];
  char product[KZDDL_PID_SIZE];
  strcpy_nb((const char *)data + 8, vendor, sizeof vendor);
  strcpy_nb((const char *)data + 16, product, sizeof product);
  free(data);
  char unit[KZDDL_LUN_ID_SIZE];
  unsigned char type;
  if (get_lun_id(&path, 0x83, unit, &type, node) != 0) return -1;

  const char *const disk[] = {node, NULL};
  if (set_property(KZDDL_PROP_DISK, disk) < 0 ||
      relate(KZDDL_PROP_DISK, node, "VENDOR", vendor) != 0 ||
      relate(KZDDL_PROP_DISK, node, "PRODUCT", product) != 0 ||
      relate(KZDDL_PROP_DISK, node, "LUN_ID", unit) != 0) {
    return -1;
  }
  // From now on a look-up of the disk's CAPACITY calls get_capacity().
  get_dynamic_attr_fn entry = get_capacity;
  void *address = NULL;
  memcpy(&address, &entry, sizeof address);
  if (relate(KZDDL_PROP_DISK, node, KZDDL_PROP_DYNAMIC, "CAPACITY") != 0) return -1;
  return relate_address(KZDDL_PROP_DYNAMIC, "CAPACITY", KZDDL_PROP_ENTRY, address);
}

// Registers a library for a disk: its name, its entry point, its handler record if it has one, and
// the attributes that it answers for.
static int register_library(const char *node, const char *name, void *module) {
  void *entry = dlsym(module, "get_dynamic_attr");
  if (entry == NULL || relate(KZDDL_PROP_DISK, node, KZDDL_PROP_LIBNAME, name) != 0 ||
      relate_address(KZDDL_PROP_LIBNAME, name, KZDDL_PROP_ENTRY, entry) != 0) {
    return -1;
  }
  void *(*get_handler)(void);
  *(void **)&get_handler = dlsym(module, "get_handler");
  if (get_handler != NULL &&
      relate_address(KZDDL_PROP_LIBNAME, name, KZDDL_PROP_HANDLER, get_handler()) != 0) {
    return -1;
  }
  if (relate(KZDDL_PROP_DISK, node, KZDDL_PROP_DYNAMIC, "ARRAY_TYPE") != 0) return -1;
  return relate(KZDDL_PROP_DISK, node, KZDDL_PROP_DYNAMIC, "POWER_STATE");
}

// Shows each unit with the disks that lead to it: a value is linked from both sides.
static void show_units(void) {
  const char **units = NULL;
  const int32_t count = get_property("LUN_ID", &units);
  for (int32_t i = 0; i < count; ++i) {
    const char **disks = NULL;
    printf("unit %s:", units[i]);
    const int32_t paths = get_asso_val("LUN_ID", units[i], KZDDL_PROP_DISK, &disks);
    for (int32_t j = 0; j < paths; ++j)
      printf(" %s", disks[j]);
    putchar('\n');
    free(disks);  // the array is ours, its entries are the database's
  }
  free(units);
}

static void show_attribute(const char *node, const char *name) {
  const char **texts = NULL;
  const int32_t count = get_asso_val(KZDDL_PROP_DISK, node, name, &texts);
  for (int32_t i = 0; i < count; ++i)
    printf("%s %s: %s\n", node, name, texts[i]);
  free(texts);
}

static const char *const attributes[] = {"VENDOR", "CAPACITY", "ARRAY_TYPE", "POWER_STATE"};

int main(int argc, char **argv) {
  const char *name = "array support library";
  void *module = NULL;
  int first = 1;
  if (argc > 2 && strcmp(argv[1], "--library") == 0) {
    module = dlopen(argv[2], RTLD_NOW);
    if (module == NULL) return fprintf(stderr, "%s\n", dlerror()), 1;
    first = 3;
  }

  init_property_list(&levels);
  for (int i = first; i < argc; ++i) {
    int error = store_disk(argv[i]);
    if (error == 0 && module != NULL) error = register_library(argv[i], name, module);
    if (error != 0) return fprintf(stderr, "%s: %d\n", argv[i], error), 1;
  }
  show_units();
  for (int i = first; i < argc; ++i) {
    for (size_t j = 0; j < sizeof attributes / sizeof *attributes; ++j)
      show_attribute(argv[i], attributes[j]);
  }
  return 0;
}
