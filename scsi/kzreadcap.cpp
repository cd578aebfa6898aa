// READ CAPACITY(10) and (16), and their printers.
#include "kzddl/kzreadcap.h"

#include <cstddef>
#include <cstdio>

#include "base/bytes.h"
#include "scsi/frame.h"

using namespace kzddl;

static_assert(offsetof(capacity_record, block_size) == 8);

namespace {

constexpr OpenFlags flags{.direct = O_RDONLY, .indirect = O_NONBLOCK};
constexpr std::uint32_t data_size_10 = 8;
constexpr std::uint32_t data_size_16 = 32;
constexpr std::uint32_t legacy_out_length = 24;

/// What the caller asks, whichever command carries it.
struct Question {
  int reladr;
  unsigned lba;
  int pmi;
};

Cdb<10> cdb_10(const Question &question) {
  Cdb<10> cdb{opcode::read_capacity_10, static_cast<std::uint8_t>(question.reladr & 1)};
  store_be32(&cdb[2], question.lba);
  cdb[8] = static_cast<std::uint8_t>(question.pmi & 1);
  return cdb;
}

Cdb<16> cdb_16(const Question &question) {
  constexpr std::uint8_t read_capacity = 0x10;  // service action
  Cdb<16> cdb{opcode::service_action_in_16, read_capacity};
  store_be64(&cdb[2], question.lba);
  store_be32(&cdb[10], data_size_16);
  cdb[14] = static_cast<std::uint8_t>(question.pmi & 1);
  return cdb;
}

int send(Generation generation, const odh &path, std::span<const std::uint8_t> cdb,
         std::uint32_t size, int *len, unsigned char **buf) {
  const Route route(generation, path, flags);
  if (!route) return failure();
  *len = 0;
  Buffer data;
  if (const int error = read_data(route, cdb, size, data); error != 0) return error;
  *len = static_cast<int>(size);
  *buf = data.release();
  return 0;
}

int read_capacity_old(const Route &route, const Question &question, int *len, unsigned char **buf) {
  if (!route) return failure();
  *len = legacy_out_length;
  LegacyRequest request(LegacyRequest::header_size + legacy_out_length);
  if (const int error = read_legacy(route, cdb_10(question), legacy_out_length, request);
      error != 0) {
    return error;
  }
  const int error = hand_over(duplicate(request.reply(), data_size_10), buf);
  if (error == 0) *len = data_size_10;
  return error;
}

int read_capacity(Generation generation, const odh &path, const Question &question, int *len,
                  unsigned char **buf) {
  if (ddl_is_arch_ia64() == 1) {
    return read_capacity_old(Route(generation, path, flags), question, len, buf);
  }
  return send(generation, path, cdb_10(question), data_size_10, len, buf);
}

}  // namespace

int do_read_capacity(odh *path, int reladr, unsigned lba, int pmi, int *len, unsigned char **buf) {
  return dispatch([&](Generation generation) {
    return read_capacity(generation, *path, {reladr, lba, pmi}, len, buf);
  });
}

int do_read_capacity_35(odh *path, int reladr, unsigned lba, int pmi, int *len,
                        unsigned char **buf) {
  return read_capacity(Generation::indirect, *path, {reladr, lba, pmi}, len, buf);
}

int do_read_capacity_32(odh *path, int reladr, unsigned lba, int pmi, int *len,
                        unsigned char **buf) {
  return read_capacity(Generation::direct, *path, {reladr, lba, pmi}, len, buf);
}

int do_read_capacity_16(odh *path, int reladr, unsigned lba, int pmi, int *len,
                        unsigned char **buf) {
  const Question question{reladr, lba, pmi};
  if (ddl_is_arch_ia64() == 1) {
    return read_capacity_old(Route(Generation::indirect, *path, flags), question, len, buf);
  }
  return send(Generation::indirect, *path, cdb_16(question), data_size_16, len, buf);
}

int do_read_capacity_old(odh *path, int reladr, unsigned lba, int pmi, int *len,
                         unsigned char **buf, int indirect) {
  return read_capacity_old(Route(generation_of(indirect), *path, flags), {reladr, lba, pmi}, len,
                           buf);
}

void decode_read_capacity_data(const capacity_record *cap) {
  const unsigned long long blocks = cap->blocks;
  const unsigned long block_size = cap->block_size;
  // The count enters in single precision; everything after it is exact enough in double.
  const auto rounded = static_cast<float>(cap->blocks);
  const double gigabytes = rounded * 0x1p-20 * cap->block_size * 0x1p-10;
  std::puts("\n--------- Read Capacity Information\n");
  std::printf("Number of logical block : %llu (0x%llx)\n", blocks, blocks);
  std::printf("Size of logical block : %lu (0x%lx)\n", block_size, block_size);
  std::printf("Total Disk Capacity : %f GB\n", gigabytes);
}

void dump_read_capacity_data(const unsigned char *data, int len) {
  std::puts("\n--------- Read Capacity Data (in raw format)\n");
  for (int i = 0; i < len; ++i)
    std::printf("Byte %2d : 0x%x\n", i, data[i]);
}
