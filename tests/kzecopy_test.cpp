// Extended copy: target descriptors and operating parameters, their text, hostile replies.
#include "kzddl/kzecopy.h"

#include "kzddl/ddlts.h"
#include "kzddl/kzecopy_oper.h"
#include "support/disk_test.h"
#include "support/guarded_page.h"

namespace kzddl_test {
namespace {

const unsigned char lun[8] = {0x50, 6, 1, 2, 3, 4, 5, 6};
const unsigned char port[8] = {1, 2, 3, 0, 0, 0, 0, 0x99};

Bytes taken(unsigned char *td) {
  const kzddl::Buffer owner(td);
  return td != nullptr ? Bytes(td, td + 32) : Bytes{};
}

std::string displayed(const Bytes &td) {
  return printed([&td] { EXPECT_EQ(do_display_target_desc("disk", td.data()), 0); });
}

std::string label(std::string text) {
  text.resize(49, ' ');
  return "\t" + text + ": ";
}

TEST(TargetDescriptor, Types) {
  unsigned char *td = nullptr;
  ASSERT_EQ(do_td_create_e0(lun, port, 0x200, &td), 0);
  EXPECT_EQ(taken(td), (Bytes{0xE0, 0, 0, 0,    0x50, 6, 1, 2, 3, 4, 5, 6, 1, 2, 3, 0,
                              0,    0, 0, 0x99, 0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0}));
  ASSERT_EQ(do_td_create_e1(lun, port, 0x200, &td), 0);
  EXPECT_EQ(taken(td), (Bytes{0xE1, 0, 0, 0, 0x50, 6, 1, 2, 3, 4, 5, 6, 0, 0, 0, 0,
                              0,    0, 0, 0, 0,    1, 2, 3, 0, 0, 0, 0, 0, 0, 2, 0}));
  const Bytes id(20, 0xAA);
  ASSERT_EQ(do_td_create_e4(0xF2, 0xF3, 16, id.data(), 0x01020304, &td), 0);
  Bytes expected{0xE4, 0, 0, 0, 2, 3, 0, 16};
  expected.resize(24, 0xAA);
  expected.resize(28);
  expected.insert(expected.end(), {1, 2, 3, 4});
  EXPECT_EQ(taken(td), expected);
  ASSERT_EQ(do_td_create_e4(1, 3, 20, id.data(), 0, &td), 0);
  EXPECT_EQ(taken(td)[27], 0xAA);
  td = const_cast<unsigned char *>(lun);
  EXPECT_EQ(do_td_create_e4(1, 3, 21, id.data(), 0, &td), -1);
  EXPECT_EQ(td, nullptr);
}

TEST(TargetDescriptor, Display) {
  Bytes td(32);
  td[0] = 0xE0, td[1] = 0xE5, td[4] = 0x50, td[5] = 6, td[12] = 0xAB, td[30] = 2;
  const std::string parms = label("Device type specific parms") + "0020\n";
  EXPECT_EQ(displayed(td), label("Target Descriptor data for") + "disk\n" + label("Type code") +
                               "0xe0\n" + label("Device type") + "0x5\n" + label("LU ID ") +
                               "506000000" + label("World Wide Name") + "ab0000000\n" + parms);
  td[0] = 0xE4, td[4] = 0xF2, td[5] = 0xF3, td[7] = 2, td[8] = 0x0F, td[9] = 0x10;
  EXPECT_NE(
      displayed(td).find(label("Code set") + "0x2\n" + label("Identifitcaion type") + "0x3\n" +
                         label("Identifier length") + "0x2\n" + label("Identification") + "f10\n"),
      std::string::npos);
  td[7] = 0xFF;  // announces more than it holds
  const GuardedPage guarded(td);
  printed([&] { do_display_target_desc("disk", guarded.data()); });
  td[0] = 0xE1;
  EXPECT_NE(displayed(td).find("\t Targey descriptor type e1 is not supported.\n" + parms),
            std::string::npos);

  const unsigned char bytes[] = {0x41, 0xE4};
  EXPECT_EQ(printed([&] { do_td_print(bytes, 2), do_td_print(bytes, 0); }),
            "\tTarget Descriptor Raw data size 2\n\t\tByte  0 : 0x41\tA\n\t\tByte  1 : "
            "0xe4\t\xE4\n\tTarget Descriptor Raw data size 0\n");
  char padded[8];
  EXPECT_EQ(padstring("ab", padded, 6), 0);
  EXPECT_STREQ(padded, "ab   ");
  padstring("abcdefghij", padded, 6);
  EXPECT_STREQ(padded, "abcde");
  for (const int none : {0, -1, INT32_MIN})
    EXPECT_EQ(padstring("ab", padded + 3, none), 0);
  EXPECT_STREQ(padded, "abcde");
}

TEST(TargetDescriptor, TypedStringWrappers) {
  char *typed = nullptr;
  ASSERT_EQ(do_ts_build(1, 2, "\x0A\xFF", &typed), 0);
  const kzddl::Owned<char[]> owner(typed);
  char *text = nullptr;
  ASSERT_EQ(do_ts_tostring(typed, &text), 0);
  EXPECT_STREQ(text, "0AFF");
  std::free(text);
}

class OperatingParameters : public DiskTest {
 protected:
  int read() {
    rcr_oper_parm *parm = nullptr;
    const int result = do_operating_parameters(&path, &parm);
    record.reset(parm);
    return result;
  }

  kzddl::Owned<rcr_oper_parm> record;
};

TEST_F(OperatingParameters, LengthOfAReplyIsTheLowByteOnly) {
  for (const auto &[announced, expected] :
       {std::pair{Bytes{0, 0, 0, 46}, 50u}, {{0, 0, 9, 0xFE}, 2}}) {
    answer(Reply::with(announced), 1);
    unsigned char *data = nullptr;
    std::uint32_t length = 7;
    EXPECT_EQ(do_rcv_copy_results(&path, 0, 3, 5, 0x123456, 0, &length, &data), 0);
    EXPECT_EQ(length, expected);
    std::free(data);
  }
}

TEST_F(OperatingParameters, EveryFieldOfAReply) {
  Bytes reply(46);
  for (std::size_t i = 0; i < reply.size(); ++i)
    reply[i] = static_cast<std::uint8_t>(i);
  reply[3] = 42, reply[43] = 2;
  answer(Reply::with(reply));
  ASSERT_EQ(read(), 0);
  const std::pair<const char *, const char *> fields[] = {
      {"Available Data", "1022a"},
      {"Maximum Target Descriptor Count", "809"},
      {"Maximum Segment Descriptor Count", "a0b"},
      {"Maximum Descriptor List Length", "c0d0e0f"},
      {"Maximum Segment Length", "10111213"},
      {"Maximum Inline Data Length", "14151617"},
      {"Held Data Limit", "18191a1b"},
      {"Maximum Stream Device Transfer Size", "1c1d1e1f"},
      {"Maximum Concurrent Copies", "24"},
      {"Data Segement Granularity", "25"},
      {"Inline Data Granularity", "26"},
      {"Held Data Granularity", "27"},
      {"Implemented Descriptor List Length", "2"},
      {"Implemented Descriptor Type Codes", "2c, 0x2d"}};
  std::string expected = label("\nRCR Operating Parameters") + "disk, buflen 2e\n";
  for (const auto &[name, value] : fields)
    expected += label(name) + "0x" + value + "\n";
  EXPECT_EQ(printed([this] {
              do_display_rcv_copy_results_operating_parameters("disk", 46, record.get());
            }),
            expected + "\t-------Done-------\n");
}

TEST_F(OperatingParameters, FallsBackToTheModePage) {
  answer(Reply::check_condition({0x05, 0x20, 0}), 2);
  EXPECT_EQ(read(), -9) << "as MODE SENSE failed";
  host.take_requests();
  Bytes page(4 + 38);
  page[0] = static_cast<std::uint8_t>(page.size() - 1);
  page[4] = 0x0E, page[5] = 36;
  page[4 + 3] = 4, page[4 + 5] = 9, page[4 + 28] = 12, page[4 + 35] = 3;
  page[4 + 36] = 0x02, page[4 + 37] = 0xE4;
  host.inject(node, {.opcode = 0x1A, .times = -1, .reply = Reply::with(page)});
  // Too short to be converted (the low byte announces next to nothing), or refused.
  host.inject(node, {.opcode = 0x84, .reply = Reply::with({0, 0, 0, 0xFC})});
  answer(Reply::check_condition({0x05, 0x20, 0}), 1);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(host.take_requests()[1].cdb, (Bytes{0x1A, 0, 0x4E, 0, 255, 0}));
    EXPECT_EQ(record->available_data, 105u);
    EXPECT_EQ(record->max_target_descriptor_count, 9);
    EXPECT_EQ(record->max_concurrent_copies, 4);
    EXPECT_EQ(record->data_segment_granularity, 12);
    EXPECT_EQ(record->held_data_limit, 0u);
    EXPECT_EQ(record->implemented_descriptor_list_length, 2) << "those inside the page";
  }
}

TEST(OperatingParameterDecoders, NeverPastTheInput) {
  const auto codes = [](int (*convert)(const unsigned char *, int, rcr_oper_parm **),
                        const Bytes &input) {
    const GuardedPage guarded(input);
    rcr_oper_parm *record = nullptr;
    const int result = convert(guarded.data(), static_cast<int>(input.size()), &record);
    EXPECT_EQ(result == 0, record != nullptr) << "untouched for too few bytes";
    const kzddl::Owned<rcr_oper_parm> owner(record);
    return result == 0 ? record->implemented_descriptor_list_length : result;
  };
  for (int size = 0; size <= 160; ++size) {
    const Bytes input(static_cast<std::size_t>(size), 0xFF);
    EXPECT_EQ(codes(do_convert_to_rcr_oper_parm, input),
              size < 43 ? -1 : std::clamp(size - 44, 0, 64));
    EXPECT_EQ(codes(do_convert_mode_sense_oper_parm_to_rcr_oper_parm, input),
              size < 37 ? -1 : std::clamp(size - 36, 0, 64));
  }
}

}  // namespace
}  // namespace kzddl_test
