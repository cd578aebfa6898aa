// A request as it reached a device.
#pragma once

#include <scsi/sg.h>

#include <cstdint>
#include <string>

#include "sim/scsi.h"

namespace sim {

struct Request {
  enum class Form { sg_io, legacy };

  std::string node;  ///< the device's node
  bool through_control_node = false;
  unsigned long control_request = 0;  ///< the ioctl that the control node got
  unsigned oflags = 0;                ///< open flags of the node, or of the indirect request
  Form form = Form::sg_io;
  Bytes cdb{};
  Bytes data_out{};
  sg_io_hdr header{};            ///< SG_IO: the header before it was answered
  std::uint32_t in_length = 0;   ///< legacy: bytes sent
  std::uint32_t out_length = 0;  ///< legacy: bytes expected
};

}  // namespace sim
