// Prints what each node leads to: the logical unit, the maker's and the product's name, and the
// target port group of the path with its access state. Shows how the C interface is held in C++:
// a path record as a class, every buffer of the library in an owner, every failure an exception.
//
// usage: kzexample_paths [--direct] NODE...
//        --direct  open the nodes themselves, instead of asking the multipath driver
#include <kzddl/kzddl.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

struct Free {
  void operator()(void *block) const { std::free(block); }
};

/// What a command answered, with its length.
struct Reply {
  std::unique_ptr<unsigned char[], Free> data;
  int length = 0;
};

constexpr int inquiry_text_end = 36;  // vendor, product and revision end here
constexpr int identification_page = 0x83;

class Path {
 public:
  explicit Path(const std::string &node) {
    if (node.size() >= sizeof record_.devname) throw std::runtime_error("name too long");
    std::memcpy(record_.devname, node.c_str(), node.size() + 1);
    record_.dev = record_.blkdev = find_device_number(node.c_str());
    if (record_.dev == ~std::uint64_t{0}) throw std::runtime_error("no such node");
  }

  /// Standard data, or a page of vital product data.
  Reply inquiry(int page = 0) {
    unsigned char *data = nullptr;
    Reply reply;
    const int error = do_inquiry(&record_, page != 0, page, 0, &reply.length, &data);
    if (error != 0) throw failure("INQUIRY", error);
    reply.data.reset(data);
    return reply;
  }

  /// The best name that the logical unit has; the node's where it offers none.
  std::string unit() {
    std::array<char, KZDDL_LUN_ID_SIZE> id{};
    unsigned char type = 0;
    const int error = get_lun_id(&record_, 0, id.data(), &type, record_.devname);
    if (error != 0) throw failure("INQUIRY", error);
    return id.data();
  }

  Reply port_groups() {
    unsigned char *data = nullptr;
    const int error = do_rtpg(&record_, &data);
    if (error != 0) throw failure("REPORT TARGET PORT GROUPS", error);
    return {std::unique_ptr<unsigned char[], Free>(data), 255};
  }

 private:
  /// Positive: an errno or the flags of a failed request; negative: the device's status.
  static std::runtime_error failure(const char *command, int error) {
    return std::runtime_error(std::string(command) + " failed: " + std::to_string(error));
  }

  odh record_{};
};

/// A field of standard inquiry data, which blanks fill.
std::string field(const Reply &reply, int offset, int size) {
  if (reply.length < inquiry_text_end) return "?";
  const std::string text(reinterpret_cast<const char *>(&reply.data[offset]), size);
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

constexpr const char *state_names[] = {" active/optimized", " active/non-optimized", " standby",
                                       " unavailable"};

/// Which target port group the path goes through, and how well it serves the unit.
std::string group(Path &path) {
  constexpr unsigned none = ~0U;
  unsigned group = none, port = none, unit_group = none;
  const Reply page = path.inquiry(identification_page);
  get_dev_id_page(page.data.get(), nullptr, &group, &port, &unit_group);
  if (group == none) return "no port group";

  const Reply reply = path.port_groups();
  const int number = static_cast<int>(group);
  std::string text = "group " + std::to_string(group);
  const int state = get_owner_state(reply.data.get(), number);
  if (state < 0) return text + ", which the target does not list";
  text += state < 4 ? state_names[state] : " in another state";
  if (get_pref_state(reply.data.get(), number) > 0) text += ", preferred";
  return text;
}

void print(const std::string &node) {
  Path path(node);
  const Reply inquiry = path.inquiry();
  std::printf("%s: unit %s, %s %s\n", node.c_str(), path.unit().c_str(),
              field(inquiry, 8, 8).c_str(), field(inquiry, 16, 16).c_str());
  // A target without port groups need not have the page and the command.
  try {
    std::printf("  %s\n", group(path).c_str());
  } catch (const std::runtime_error &error) {
    std::printf("  no port groups: %s\n", error.what());
  }
}

}  // namespace

int main(int argc, char **argv) {
  int first = 1;
  if (argc > 1 && std::strcmp(argv[1], "--direct") == 0) {
    kzscsi_set_version("32");
    first = 2;
  }
  if (first == argc) {
    std::fprintf(stderr, "usage: %s [--direct] NODE...\n", argv[0]);
    return 2;
  }
  int status = 0;
  for (int i = first; i < argc; ++i) {
    try {
      print(argv[i]);
    } catch (const std::runtime_error &error) {
      std::fprintf(stderr, "%s: %s\n", argv[i], error.what());
      status = 1;
    }
  }
  return status;
}
