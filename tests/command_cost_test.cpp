// What a command costs: the system calls and the allocations that it needs, and none beyond.
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <span>
#include <vector>

#include "support/disk_test.h"
#include "support/failing_malloc.h"

namespace {

using namespace kzddl_test;

struct Command {
  const char *name;
  long allocations;  ///< when it succeeds
  std::function<int(odh *)> run;
};

template <class Data>
int released(int result, Data *data) {
  std::free(data);
  return result;
}

const Command commands[] = {
    {"TEST UNIT READY", 0, do_tur},
    {"INQUIRY", 1,
     [](odh *path) {
       int length = 0;
       unsigned char *data = nullptr;
       const int result = do_inquiry(path, 0, 0, O_RDONLY, &length, &data);
       return released(result, data);
     }},
    {"READ CAPACITY", 1,
     [](odh *path) {
       int length = 0;
       unsigned char *data = nullptr;
       const int result = do_read_capacity(path, 0, 0, 0, &length, &data);
       return released(result, data);
     }},
    {"MODE SENSE", 1,
     [](odh *path) {
       int length = 0;
       unsigned char *data = nullptr;
       const int result = do_mode_sense_raw(path, 0, 0, 0x3F, &length, &data);
       return released(result, data);
     }},
    {"REPORT TARGET PORT GROUPS", 1,
     [](odh *path) {
       unsigned char *data = nullptr;
       const int result = do_rtpg(path, &data);
       return released(result, data);
     }},
    {"PERSISTENT RESERVE IN", 3,  // two passes, and what is handed over
     [](odh *path) {
       pgr_in_data *data = nullptr;
       const auto result = static_cast<int>(do_pgr_in(path, 0, &data));
       return released(result, data);
     }},
};

class CommandCost : public DiskTest {};

TEST_F(CommandCost, NoAllocationButWhatIsHandedOver) {
  use_disk({.serial = "SN-1", .groups = {{.id = 1, .ports = {1}}}});
  for (const char *version : {"32", "35"}) {
    kzscsi_set_version(version);
    for (const Command &command : commands) {
      const CountMalloc allocations;
      EXPECT_EQ(command.run(&path), 0) << command.name;
      EXPECT_EQ(allocations.count(), command.allocations) << command.name << " " << version;
    }
  }
}

#ifndef KZDDL_SANITIZED

/// The numbers of the system calls that `work` makes in a child process.
std::vector<long> system_calls(const std::function<void()> &work) {
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    syscall(SYS_kill, syscall(SYS_getpid), SIGSTOP);
    work();
    syscall(SYS_getppid);  // marks the end
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  std::vector<long> calls;
  while (true) {
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) break;
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
    const auto number = static_cast<long>(info.entry.nr);
    if (number == SYS_getppid) break;
    calls.push_back(number);
  }
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return calls;
}

/// On a real node: it takes no commands, but nothing more is done to find that out. (TEST UNIT
/// READY says so on standard error.)
TEST_F(CommandCost, NoSystemCallButOpenIoctlClose) {
  std::strcpy(path.devname, "/dev/null");
  kzscsi_set_version("32");
  for (const Command &command : std::span(commands).subspan<1>()) {
    EXPECT_NE(command.run(&path), 0) << "the first one also probes the machine";
    EXPECT_EQ(system_calls([&] { command.run(&path); }),
              (std::vector<long>{SYS_openat, SYS_ioctl, SYS_close}))
        << command.name;
  }
}

#endif

}  // namespace
