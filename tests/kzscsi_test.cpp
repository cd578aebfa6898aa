// The generic pass-through and the indirect request: bytes on the wire, results, clean-up.
#include <sys/resource.h>

#include <thread>

#include "support/disk_test.h"

namespace kzddl_test {
namespace {

/// A uscsi_cmd over buffers of its own.
struct Pass {
  Bytes cdb;
  Bytes data;
  Bytes sense = Bytes(64, 0xEE);
  uscsi_cmd cmd{};

  Pass(Bytes cdb_bytes, Bytes data_bytes, int flags)
      : cdb(std::move(cdb_bytes)), data(std::move(data_bytes)) {
    cmd.uscsi_flags = flags;
    cmd.uscsi_status = cmd.uscsi_timeout = -1;
    cmd.uscsi_cdb = cdb.data();
    cmd.uscsi_cdblen = static_cast<std::uint8_t>(cdb.size());
    cmd.uscsi_bufaddr = data.data();
    cmd.uscsi_buflen = static_cast<std::uint32_t>(data.size());
    cmd.uscsi_resid = -1;
    cmd.uscsi_rqlen = static_cast<std::uint8_t>(sense.size());
    cmd.uscsi_rqbuf = sense.data();
    cmd.uscsi_rqstatus = cmd.uscsi_rqresid = 0xEE;
  }
};

const Bytes inquiry_cdb{0x12, 0, 0, 0, 64, 0};

class Scsi : public WayTest {};
class SgScsi : public WayTest {};
class LegacyScsi : public WayTest {};
INSTANTIATE_TEST_SUITE_P(, SgScsi, every_sg_way, way_name);
INSTANTIATE_TEST_SUITE_P(, LegacyScsi, every_legacy_way, way_name);
INSTANTIATE_TEST_SUITE_P(, Scsi, every_way, way_name);

TEST_P(SgScsi, ReadsAndReportsResidualAndSense) {
  Pass pass(inquiry_cdb, Bytes(128), USCSI_READ);
  ASSERT_EQ(do_scsi(&path, &pass.cmd), 0);
  EXPECT_EQ(std::memcmp(&pass.data[8], "KZSIM   VIRTUAL DISK", 20), 0);
  EXPECT_EQ(pass.cmd.uscsi_status, 0);
  EXPECT_EQ(pass.cmd.uscsi_resid, 64);
  EXPECT_EQ(pass.cmd.uscsi_rqresid, 0);
  EXPECT_EQ(pass.cmd.uscsi_rqstatus, 0xEE);
  EXPECT_EQ(only_request().header.mx_sb_len, 64);
}

TEST_P(SgScsi, DirectionFollowsTheDataWithoutReadFlag) {
  answer(Reply{});
  Pass write({0x2A, 0, 0, 0, 0, 0, 0, 0, 1, 0}, Bytes(8, 0x5A), 0);
  EXPECT_EQ(do_scsi(&path, &write.cmd), 0);
  const Request sent = only_request();
  EXPECT_EQ(sent.header.dxfer_direction, SG_DXFER_TO_DEV);
  EXPECT_EQ(sent.data_out, Bytes(8, 0x5A));

  Pass none(Bytes(6), Bytes(8), 0);
  none.cmd.uscsi_buflen = 0;
  EXPECT_EQ(do_scsi(&path, &none.cmd), 0);
  const Request empty = only_request();
  EXPECT_EQ(empty.header.dxfer_direction, SG_DXFER_NONE);
  EXPECT_EQ(empty.header.dxfer_len, 0u);
  EXPECT_EQ(empty.header.dxferp, none.data.data());
}

TEST_P(SgScsi, StatusIsPositiveAndFieldsComeBackOnFailure) {
  answer(Sense{0x05, 0x24, 0x00});
  Pass pass(inquiry_cdb, Bytes(36), USCSI_READ);
  EXPECT_EQ(do_scsi(&path, &pass.cmd), 1 | 8);
  EXPECT_EQ(pass.cmd.uscsi_status, 2);
  EXPECT_EQ(pass.cmd.uscsi_rqresid, 18);
  EXPECT_EQ(pass.sense[2], 0x05);
  EXPECT_EQ(pass.sense[18], 0xEE);
}

TEST_P(SgScsi, FailedIoctlKeepsErrnoAndStillWritesTheFields) {
  fail_ioctl(ENOMEM);
  Pass pass(inquiry_cdb, Bytes(36), USCSI_READ);
  errno = 0;
  EXPECT_EQ(do_scsi(&path, &pass.cmd), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(pass.cmd.uscsi_status, 0);
  EXPECT_EQ(pass.cmd.uscsi_resid, 0);
}

TEST_P(LegacyScsi, SendsWhatItReadsInto) {
  Pass pass(inquiry_cdb, Bytes(40, 0x77), USCSI_READ);
  ASSERT_EQ(do_scsi(&path, &pass.cmd), 0);
  EXPECT_EQ(std::memcmp(&pass.data[8], "KZSIM   VIRTUAL DISK", 20), 0);
  EXPECT_EQ(pass.cmd.uscsi_status, -1) << "the legacy path writes no field";
  EXPECT_EQ(only_request().data_out, Bytes(40, 0x77));
}

TEST_P(LegacyScsi, NegatesTheStatusAndCopiesBackWhateverHappened) {
  answer(Sense{0x05, 0x24, 0x00});
  Pass pass(inquiry_cdb, Bytes(16), USCSI_READ);
  EXPECT_EQ(do_scsi(&path, &pass.cmd), -2);
  EXPECT_EQ(pass.data[0], 0x70) << "sense data come back where the data would";
}

TEST_P(LegacyScsi, ErrnoOrNoRoom) {
  Pass pass(inquiry_cdb, Bytes(16), USCSI_READ);
  pass.cmd.uscsi_buflen = 0xFFFF'FFFF;  // 8 + CDB + data wraps in 32 bits
  if (sizeof(std::size_t) == 4) {
    EXPECT_EQ(do_scsi(&path, &pass.cmd), ENOMEM);
  }
  pass.cmd.uscsi_buflen = 16;
  fail_ioctl(EPERM);
  EXPECT_EQ(do_scsi(&path, &pass.cmd), EPERM);
}

TEST_P(Scsi, NodeThatCannotBeOpened) {
  const bool opens_node = GetParam().direct() || GetParam().ia64;
  host.fail_open(opens_node ? node : sim::control_node, EACCES);
  Pass pass(inquiry_cdb, Bytes(16), USCSI_READ);
  EXPECT_EQ(do_scsi(&path, &pass.cmd), opens_node ? EACCES : ENODEV);
  // Only a request that was handed over writes the fields.
  EXPECT_EQ(pass.cmd.uscsi_status, opens_node ? -1 : 0);
  EXPECT_TRUE(host.take_requests().empty());
}

class Indirect : public DiskTest {
 protected:
  sg_io_hdr header_for(Bytes &data) {
    sg_io_hdr header{};
    header.interface_id = 'S';
    header.cmd_len = sizeof cdb_;
    header.cmdp = cdb_;
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.dxferp = data.data();
    header.dxfer_len = static_cast<unsigned>(data.size());
    return header;
  }

  int send(sg_io_hdr &header) { return ddl_indirect_ioctl(0x5678, 0x1234, SG_IO, 0x800, &header); }

 private:
  unsigned char cdb_[6] = {0x12, 0, 0, 0, 36, 0};
};

TEST_F(Indirect, PutsTheDataPointerBackWhateverHappens) {
  Bytes data(36);
  sg_io_hdr header = header_for(data);
  EXPECT_EQ(send(header), 0);
  EXPECT_EQ(header.dxferp, data.data());
  EXPECT_EQ(data[8], 'K');
  EXPECT_EQ(only_request().control_request, static_cast<unsigned long>(SG_IO));

  fail_ioctl(EIO);
  EXPECT_EQ(send(header), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(header.dxferp, data.data());
}

TEST_F(Indirect, OtherRequestsAnd32BitKernelsUseTheDriversOwnCode) {
  alignas(4) unsigned char legacy[64] = {0, 0, 0, 0, 36, 0, 0, 0, 0x12, 0, 0, 0, 36, 0};
  EXPECT_EQ(ddl_indirect_ioctl(0x5678, 0x1234, 1, 0x800, legacy), 0);
  Request request = only_request();
  EXPECT_EQ(request.control_request, sim::indirect_request);
  EXPECT_EQ(request.oflags, 0x800u);
  EXPECT_EQ(legacy[16], 'K');
  EXPECT_EQ(ddl_indirect_ioctl(0x5678, 0x1234, 0x1234, 0, legacy), -1);
  EXPECT_EQ(errno, ENOTTY);
}

TEST_F(Indirect, MissingControlNodeOrDevice) {
  Bytes data(36);
  sg_io_hdr header = header_for(data);
  EXPECT_EQ(ddl_indirect_ioctl(0x5678, 0, SG_IO, 0, &header), -1);
  EXPECT_EQ(errno, ENODEV);
  host.fail_open(sim::control_node, ENOENT);
  EXPECT_EQ(send(header), 19);
  EXPECT_EQ(header.dxferp, data.data());
}

TEST_F(DiskTest, OnlyTheWhole32SelectsTheNode) {
  for (const char *version : {"32", "35", "3", "320", "", "99"}) {
    kzscsi_set_version(version);
    Pass pass(inquiry_cdb, Bytes(36), USCSI_READ);
    EXPECT_EQ(do_scsi(&path, &pass.cmd), 0);
    EXPECT_EQ(only_request().through_control_node, std::string(version) != "32") << version;
  }
}

}  // namespace
}  // namespace kzddl_test
