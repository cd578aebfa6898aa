#include "control/control_node.h"

#define FUSE_USE_VERSION 312
#include <cuse_lowlevel.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>
#include <string>

#include "base/descriptor.h"
#include "base/driver.h"
#include "control/call.h"
#include "control/perform.h"
#include "control/workers.h"

namespace control {
namespace {

using kzddl::control_node;

/// The ranges as the kernel's interface takes them.
class Iovecs {
 public:
  explicit Iovecs(const Ranges &ranges) {
    for (const Range &range : ranges)
      list_[count_++] = {std::bit_cast<void *>(static_cast<std::uintptr_t>(range.address)),
                         static_cast<std::size_t>(range.length)};
  }
  const iovec *data() const { return list_.data(); }
  std::size_t size() const { return count_; }

 private:
  std::array<iovec, 4> list_{};
  std::size_t count_ = 0;
};

[[noreturn]] void fail(const std::string &what, int error) {
  throw std::runtime_error(what + ": " + std::strerror(error));
}

}  // namespace

class ControlNode::Service {
 public:
  explicit Service(std::size_t limit)
      : drained_(eventfd(0, EFD_CLOEXEC)), workers_(limit, [this] { tell_if_drained(); }) {
    if (!drained_) fail("eventfd", errno);
    make_node();
  }
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;

  int kernel_fd() const { return fuse_session_fd(session_.get()); }
  int drained_fd() const { return drained_.get(); }

  bool serve() {
    const int size = fuse_session_receive_buf(session_.get(), &message_);
    if (size == -EINTR || size == -EAGAIN) return true;
    if (size <= 0) return false;
    fuse_session_process_buf(session_.get(), &message_);
    return fuse_session_exited(session_.get()) == 0;
  }

  void end() {
    ending_ = true;
    if (!workers_.busy()) tell_if_drained();
  }

 private:
  struct CloseSession {
    void operator()(fuse_session *session) const { cuse_lowlevel_teardown(session); }
  };

  /// A request of the kernel; the first takes the memory for all.
  struct Message : fuse_buf {
    Message() : fuse_buf{} {}
    Message(const Message &) = delete;
    Message &operator=(const Message &) = delete;
    ~Message() { std::free(mem); }
  };

  static Service &of(fuse_req_t request) {
    return *static_cast<Service *>(fuse_req_userdata(request));
  }

  /// What libfuse calls, with this object as the user's data.
  static cuse_lowlevel_ops callbacks() {
    cuse_lowlevel_ops operations{};
    operations.init_done = [](void *service) {
      // Who may open the node may send any command to any SCSI device of the host.
      chmod(control_node, S_IRUSR | S_IWUSR);
      static_cast<Service *>(service)->made_ = true;
    };
    operations.open = [](fuse_req_t request, fuse_file_info *file) {
      if (of(request).ending_) {
        fuse_reply_err(request, ENODEV);
      } else {
        fuse_reply_open(request, file);
      }
    };
    operations.ioctl = [](fuse_req_t request, int command, void *argument, fuse_file_info *,
                          unsigned flags, const void *in, std::size_t in_size,
                          std::size_t out_size) {
      of(request).take(request, {.request = static_cast<unsigned>(command),
                                 .argument = reinterpret_cast<std::uintptr_t>(argument),
                                 .from_32_bit = (flags & FUSE_IOCTL_COMPAT) != 0,
                                 .in = {static_cast<const std::byte *>(in), in_size},
                                 .out_size = out_size});
    };
    return operations;
  }

  void make_node() {
    if (access(control_node, F_OK) == 0) {
      throw std::runtime_error(std::string(control_node) +
                               ": there already; does the multipath driver, or another service, "
                               "serve this host?");
    }
    const cuse_lowlevel_ops operations = callbacks();
    const std::string node_under_dev = control_node + std::strlen("/dev/");
    const std::string device_name = "DEVNAME=" + node_under_dev;
    const char *device_info[] = {device_name.c_str()};
    const cuse_info info{.dev_major = 0,
                         .dev_minor = 0,
                         .dev_info_argc = 1,
                         .dev_info_argv = device_info,
                         .flags = CUSE_UNRESTRICTED_IOCTL};
    char name[] = "kzcontrold";
    char foreground[] = "-f";
    char *arguments[] = {name, foreground, nullptr};
    int multithreaded = 0;
    session_.reset(cuse_lowlevel_setup(2, arguments, &info, &operations, &multithreaded, this));
    if (session_ == nullptr) {
      throw std::runtime_error(std::string(control_node) +
                               " cannot be made (is the module cuse loaded, and /dev/cuse open to "
                               "this user?)");
    }
    // The kernel's first request makes the node.
    while (!made_)
      if (!serve()) throw std::runtime_error(std::string(control_node) + ": the kernel refused it");
    fcntl(kernel_fd(), F_SETFL, fcntl(kernel_fd(), F_GETFL) | O_NONBLOCK);
  }

  void take(fuse_req_t request, const Call &call) {
    if (ending_) {
      fuse_reply_err(request, ENODEV);
      return;
    }
    try {
      std::visit([&](const auto &step) { answer(request, call, step); }, examine(call));
    } catch (const std::bad_alloc &) {
      fuse_reply_err(request, ENOMEM);
    }
  }

  void answer(fuse_req_t request, const Call &, const Needs &needs) {
    const Iovecs in(needs.in);
    const Iovecs out(needs.out);
    fuse_reply_ioctl_retry(request, in.data(), in.size(), out.data(), out.size());
  }

  void answer(fuse_req_t request, const Call &, const Refusal &refusal) {
    fuse_reply_err(request, refusal.error);
  }

  void answer(fuse_req_t request, const Call &call, const Command &command) {
    const auto job = std::make_shared<Job>(command, call.in);
    const bool started = workers_.start([request, job] { carry_out(request, *job); });
    if (!started) fuse_reply_err(request, EBUSY);
  }

  static void carry_out(fuse_req_t request, Job &job) {
    try {
      job.perform();
    } catch (const std::bad_alloc &) {
      fuse_reply_err(request, ENOMEM);
      return;
    }
    if (job.result() < 0) {
      fuse_reply_err(request, -job.result());
    } else {
      fuse_reply_ioctl_iov(request, job.result(), job.reply().data(),
                           static_cast<int>(job.reply().size()));
    }
  }

  void tell_if_drained() {
    if (ending_) eventfd_write(drained_.get(), 1);
  }

  kzddl::Descriptor drained_;
  std::atomic<bool> ending_ = false;
  std::unique_ptr<fuse_session, CloseSession> session_;
  Message message_;
  bool made_ = false;
  Workers workers_;  // ends first: requests in flight reply to the session
};

ControlNode::ControlNode(std::size_t limit) : service_(std::make_unique<Service>(limit)) {}
ControlNode::~ControlNode() = default;
int ControlNode::kernel_fd() const { return service_->kernel_fd(); }
int ControlNode::drained_fd() const { return service_->drained_fd(); }
bool ControlNode::serve() { return service_->serve(); }
void ControlNode::end() { service_->end(); }

}  // namespace control
