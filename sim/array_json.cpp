// Arrays described in JSON: every mistake is reported with its place in the file.
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <nlohmann/json.hpp>

#include "capture/capture.h"
#include "sim/array.h"
#include "sim/replay.h"

namespace sim {
namespace {

using nlohmann::json;

/// A value of the file and where it stands (a JSON pointer).
class Value {
 public:
  Value(const json &value, std::string place) : value_(value), place_(std::move(place)) {}

  [[noreturn]] void fail(const std::string &what) const {
    throw ArrayError((place_.empty() ? "/" : place_) + ": " + what);
  }

  /// Requires an object with no other keys than these: a mistyped key is a mistake, not a default.
  void require_object(std::initializer_list<const char *> keys) const {
    if (!value_.is_object()) fail("expected an object");
    for (const auto &[key, unused] : value_.items()) {
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
        fail("unknown key \"" + key + "\"");
      }
    }
  }

  bool has(const char *key) const { return value_.contains(key); }

  Value at(const char *key) const {
    if (!has(key)) fail(std::string("\"") + key + "\" is missing");
    return {value_.at(key), place_ + "/" + key};
  }

  std::vector<Value> list() const {
    if (!value_.is_array() || value_.empty()) fail("expected a list that is not empty");
    std::vector<Value> values;
    for (std::size_t i = 0; i < value_.size(); ++i) {
      values.emplace_back(value_[i], place_ + "/" + std::to_string(i));
    }
    return values;
  }

  std::string text() const {
    if (!value_.is_string()) fail("expected text");
    return value_.get<std::string>();
  }

  std::string text(std::size_t longest) const {
    std::string result = text();
    if (result.size() > longest) {
      fail("at most " + std::to_string(longest) + " characters");
    }
    return result;
  }

  std::uint16_t number16() const {
    if (!value_.is_number_unsigned() || value_.get<std::uint64_t>() > 0xFFFF) {
      fail("expected a whole number from 0 to 65535");
    }
    return value_.get<std::uint16_t>();
  }

  /// Two numbers in text, as in "8:16" or (hexadecimal) "04/0B".
  std::pair<unsigned, unsigned> pair(char separator, int base, unsigned largest) const {
    const std::string content = text();
    const char *start = content.c_str();
    char *end = nullptr;
    const unsigned long first = std::strtoul(start, &end, base);
    if (end != start && *end == separator) {
      const char *second_start = end + 1;
      const unsigned long second = std::strtoul(second_start, &end, base);
      if (end != second_start && *end == '\0' && first <= largest && second <= largest) {
        return {static_cast<unsigned>(first), static_cast<unsigned>(second)};
      }
    }
    fail(std::string("expected two ") + (base == 16 ? "hexadecimal " : "") + "numbers with \"" +
         separator + "\" between them");
  }

 private:
  const json &value_;
  std::string place_;
};

template <class Field>
void set_text(Field &field, const Value &unit, const char *key, std::size_t longest) {
  if (unit.has(key)) field = unit.at(key).text(longest);
}

Bytes identifier(const Value &value) {
  Bytes naa;
  try {
    naa = capture::parse_hex(value.text());
  } catch (const capture::Error &error) {
    value.fail(error.what());
  }
  if (naa.size() != 8 && naa.size() != 16) value.fail("an NAA identifier has 8 or 16 bytes");
  return naa;
}

std::shared_ptr<Device> read_disk(const Value &unit) {
  DiskSpec spec;
  set_text(spec.vendor, unit, "vendor", 8);
  set_text(spec.product, unit, "product", 16);
  set_text(spec.revision, unit, "revision", 4);
  set_text(spec.serial, unit, "serial", 128);
  if (unit.has("naa")) spec.naa = identifier(unit.at("naa"));
  if (unit.has("not_ready")) {
    const auto [asc, ascq] = unit.at("not_ready").pair('/', 16, 0xFF);
    spec.not_ready = Sense{0x02, static_cast<std::uint8_t>(asc), static_cast<std::uint8_t>(ascq)};
  }
  return std::make_shared<Disk>(std::move(spec));
}

std::shared_ptr<Device> read_replay(const Value &value, const std::filesystem::path &folder) {
  try {
    return std::make_shared<Replay>((folder / value.text()).string());
  } catch (const capture::Error &error) {
    value.fail(error.what());
  }
}

PathSpec read_path(const Value &value, const std::filesystem::path &folder,
                   const std::shared_ptr<Device> &disk) {
  value.require_object({"node", "device", "kind", "port", "group", "replay"});
  PathSpec path{.node = value.at("node").text(255), .device = disk};
  if (!path.node.starts_with("/")) value.at("node").fail("expected an absolute name");
  const auto [major, minor] = value.at("device").pair(':', 10, 0xFFFFF);
  path.number = makedev(major, minor);
  if (value.has("kind")) {
    const std::string kind = value.at("kind").text();
    if (kind != "block" && kind != "character") {
      value.at("kind").fail("expected \"block\" or \"character\"");
    }
    path.kind = kind == "block" ? NodeKind::block : NodeKind::character;
  }
  if (value.has("port")) path.port.relative_id = value.at("port").number16();
  if (value.has("group")) path.port.group = value.at("group").number16();
  if (value.has("replay")) path.device = read_replay(value.at("replay"), folder);
  return path;
}

UnitSpec read_unit(const Value &value, const std::filesystem::path &folder) {
  value.require_object(
      {"vendor", "product", "revision", "serial", "naa", "not_ready", "multipath", "paths"});
  UnitSpec unit;
  set_text(unit.multipath, value, "multipath", 128);
  if (unit.multipath.find('/') != std::string::npos) {
    value.at("multipath").fail("expected a name without \"/\"");
  }
  const std::shared_ptr<Device> disk = read_disk(value);
  for (const Value &path : value.at("paths").list()) {
    unit.paths.push_back(read_path(path, folder, disk));
  }
  return unit;
}

/// Nodes are found by name and by number: both must be one path's alone.
void require_distinct(const std::vector<UnitSpec> &units) {
  std::set<std::string> names;
  std::set<dev_t> numbers;
  for (const UnitSpec &unit : units) {
    if (!unit.multipath.empty() && !names.insert(unit.multipath).second) {
      throw ArrayError("/units: multipath name \"" + unit.multipath + "\" is used twice");
    }
    for (const PathSpec &path : unit.paths) {
      if (!names.insert(path.node).second) {
        throw ArrayError("/units: node \"" + path.node + "\" is used twice");
      }
      if (!numbers.insert(path.number).second) {
        throw ArrayError("/units: the device number of \"" + path.node + "\" is used twice");
      }
    }
  }
}

}  // namespace

void install_file(Host &host, const std::string &file) {
  std::ifstream stream(file);
  if (!stream) throw ArrayError(file + ": " + std::strerror(errno));
  try {
    const json document = json::parse(stream);
    const Value root(document, "");
    root.require_object({"machine", "units"});
    std::string machine = "x86_64";
    set_text(machine, root, "machine", 64);
    std::vector<UnitSpec> units;
    for (const Value &unit : root.at("units").list()) {
      units.push_back(read_unit(unit, std::filesystem::path(file).parent_path()));
    }
    require_distinct(units);
    install(host, units, machine);
  } catch (const json::parse_error &error) {
    // Its text names line and column, behind the library's own mark.
    const std::string text = error.what();
    throw ArrayError(file + ": " + text.substr(text.find("] ") + 2));
  } catch (const ArrayError &error) {
    throw ArrayError(file + ": " + error.what());
  }
}

}  // namespace sim
