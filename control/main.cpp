// kzcontrold: makes the control node /dev/kz/joxconfig on a host without the multipath driver, and
// performs the requests that come through it on the host's own SCSI devices.
#include <poll.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <optional>
#include <stdexcept>

#include "base/descriptor.h"
#include "control/control_node.h"
#include "control/message.h"
#include "control/naming.h"
#include "kzddl/kzscsilib.h"

namespace control {
namespace {

struct Options {
  std::size_t max_requests = 128;
  bool no_names = false;
};

/// SIGTERM, SIGINT and SIGHUP as something to wait for. To be called before there is any thread.
int end_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGHUP);  // libfuse would end the session on it
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const int fd = signalfd(-1, &signals, SFD_CLOEXEC);
  if (fd < 0) throw std::runtime_error("no descriptor for signals");
  return fd;
}

void tell_ready() {
  sd_notify(0, "READY=1");
  std::fputs("kzcontrold: serves /dev/kz/joxconfig\n", stderr);
}

/// Serves until a signal says to end and the requests in flight are done, or a second one comes.
/// Tells that it is ready when `named` is readable; a disk that does not answer holds that up for
/// some seconds only.
void serve(ControlNode &node, int signals, int named_fd) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point latest = Clock::now() + std::chrono::seconds(10);
  bool ending = false;
  pollfd events[] = {{.fd = node.kernel_fd(), .events = POLLIN},
                     {.fd = signals, .events = POLLIN},
                     {.fd = node.drained_fd(), .events = POLLIN},
                     {.fd = named_fd, .events = POLLIN}};
  auto &[kernel, signal, drained, named] = events;
  while (true) {
    constexpr int often_ms = 100;
    if (poll(events, std::size(events), named.fd >= 0 ? often_ms : -1) < 0) continue;
    if (drained.revents != 0) return;
    if (named.fd >= 0 && (named.revents != 0 || Clock::now() > latest)) {
      tell_ready();
      named.fd = -1;
    }
    if (signal.revents != 0) {
      signalfd_siginfo info;
      [[maybe_unused]] const ssize_t size = read(signals, &info, sizeof info);
      if (ending) {
        message("ends with requests in flight");
        _exit(1);
      }
      ending = true;
      named.fd = -1;  // it is not ready any more
      sd_notify(0, "STOPPING=1");
      node.end();
    }
    if (kernel.revents != 0 && !node.serve()) {
      throw std::runtime_error("the kernel has taken the control node away");
    }
  }
}

void run(const Options &options) {
  const kzddl::Descriptor signals(end_signals());
  kzscsi_set_version("32");  // its own questions go to the devices themselves
  ControlNode node(options.max_requests);
  std::optional<Naming> naming;
  if (!options.no_names) naming.emplace();
  if (!naming) tell_ready();
  serve(node, signals.get(), naming ? naming->named_fd() : -1);
}

}  // namespace
}  // namespace control

// What escapes is a message that memory is too short for.
int main(int argc, char **argv) {  // NOLINT(bugprone-exception-escape)
  control::Options options;
  CLI::App app(
      "Makes the control node /dev/kz/joxconfig where the multipath driver is not installed,\n"
      "and performs the requests that come through it on the host's own SCSI devices.",
      "kzcontrold");
  app.add_option("--max-requests", options.max_requests,
                 "Requests in flight at a time; one more gets EBUSY")
      ->check(CLI::Range(1, 4096))
      ->option_text("N (128)");
  app.add_flag("--no-names", options.no_names,
               "Do not keep names of logical units in /dev/kz/jox and\n/dev/kz/rjox");
  app.set_version_flag("--version", "kzcontrold " KZDDL_VERSION);
  app.footer(
      "Runs in the foreground until SIGTERM or SIGINT; requests in flight are finished\n"
      "then. A second signal ends it at once. Needs the kernel module cuse, and root.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success &request) {
    return app.exit(request);
  } catch (const CLI::ParseError &error) {
    control::message("{}", error.what());
    return 2;
  }
  try {
    control::run(options);
  } catch (const std::exception &error) {
    control::message("{}", error.what());
    return 1;
  }
  return 0;
}
