// A device that answers with captured replies, one file a reply.
#pragma once

#include <map>
#include <string>

#include "sim/device.h"

namespace sim {

class Replay : public Device {
 public:
  /// Takes the captured replies of a directory: files such as inquiry.hex and vpd-83.hex.
  /// Throws capture::Error where none can be read.
  explicit Replay(const std::string &directory);

  Reply execute(const Command &command, const Port &port) override;

 private:
  std::map<std::string, Bytes> replies_;
};

}  // namespace sim
