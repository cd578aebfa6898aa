// What a command costs: the system calls that it needs, and none beyond.
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <vector>

#include "support/disk_test.h"

namespace kzddl_test {
namespace {

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

/// On a real node: it takes no commands, but nothing more is done to find that out.
TEST_F(DiskTest, ACommandOpensItsNodeSendsAndCloses) {
  std::strcpy(path.devname, "/dev/null");
  kzscsi_set_version("32");
  for (const Reader &reader : readers) {
    const auto run = [&] {
      int length = 0;
      unsigned char *data = nullptr;
      return reader.run(&path, &length, &data);
    };
    EXPECT_NE(run(), 0) << "the first one also probes the machine";
    EXPECT_EQ(system_calls(run), (std::vector<long>{SYS_openat, SYS_ioctl, SYS_close}))
        << reader.name;
  }
}

}  // namespace
}  // namespace kzddl_test
