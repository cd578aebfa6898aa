#include <gtest/gtest.h>
#include "kzddl/kzddl.h"
#include "sim/array.h"
#include "support/failing_malloc.h"
TEST(Smoke, Inquiry) {
  sim::install(sim::Host::instance(), sim::demo_array());
  odh p{};
  strcpy(p.devname, "/dev/sda");
  p.dev = find_device_number("/dev/sda");
  int len; unsigned char *b;
  ASSERT_EQ(do_inquiry(&p, 0, 0, 0, &len, &b), 0);
  EXPECT_EQ(len, 96);
  decode_inquiry_data(b, len);
  free(b);
  kzscsi_set_version("32");
  kzddl_test::FailMalloc f(1);
  ASSERT_EQ(do_inquiry(&p, 0, 0, 0, &len, &b), 12);
}
