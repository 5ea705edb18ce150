// Which of the observer's threads takes the program's signals.

#include "unit/os/fileobserver/observertest.h"
#include "unit/os/fileobserver/ownprocess.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <vector>

namespace KELP::Test {
namespace {

/** Blocks some signals on this thread while it lives. */
class SignalsBlocked {
 public:
  explicit SignalsBlocked(const std::vector<int>& signals) {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : signals) {
      ::sigaddset(&set, signal);
    }
    ::pthread_sigmask(SIG_SETMASK, &set, &before_);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

std::uint64_t bitOf(int signal) {
  return std::uint64_t{1} << (signal - 1);
}

/** All that can be blocked: the first of the real-time signals belong to the C library. */
std::uint64_t allSignals() {
  std::uint64_t all = 0;
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    const bool isSystems = signal >= __SIGRTMIN && signal < SIGRTMIN;
    if (signal != SIGKILL && signal != SIGSTOP && !isSystems) {
      all |= bitOf(signal);
    }
  }
  return all;
}

class FileObserverSignals : public FileObserverTest {
 protected:
  /** The thread that calls back. */
  pid_t deliveringThread(FileObserver& observer) {
    const TemporaryDirectory directory;
    std::atomic<pid_t> thread = 0;
    Flag called;
    const int wd = observer.addWatch(
        directory.path(), IN_CREATE,
        [&](inotify_event*, void*) {
          thread = ::gettid();
          pthread_ = ::pthread_self();
          called.set();
        },
        nullptr);
    touch(directory / "file");
    EXPECT_TRUE(called.wait());
    EXPECT_TRUE(observer.rmWatch(wd));
    return thread;
  }

  pthread_t pthread_{};
};

TEST_F(FileObserverSignals, AreTakenByTheDeliveringThreadAsByItsMaker) {
  for (const std::vector<int>& blocked :
       {std::vector<int>{}, std::vector<int>{SIGUSR1, SIGTERM, SIGRTMIN + 3}}) {
    const SignalsBlocked mask(blocked);
    const std::uint64_t ofMaker = blockedSignals(::gettid());
    const std::set<pid_t> before = threads();
    FileObserver observer;
    EXPECT_EQ(blockedSignals(::gettid()), ofMaker) << "the maker's own mask is as it was";

    const pid_t delivering = deliveringThread(observer);
    EXPECT_EQ(blockedSignals(delivering), ofMaker);
    for (const pid_t thread : threads()) {
      if (!before.contains(thread) && thread != delivering) {
        EXPECT_EQ(blockedSignals(thread) & allSignals(), allSignals());
      }
    }
  }
}

std::atomic<int> signalsTaken = 0;

/** Has SIGUSR1 counted, and system calls interrupted by it. */
class SignalCounted {
 public:
  SignalCounted() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++signalsTaken; };
    ::sigaction(SIGUSR1, &action, &before_);
  }
  ~SignalCounted() { ::sigaction(SIGUSR1, &before_, nullptr); }
  SignalCounted(const SignalCounted&) = delete;
  SignalCounted& operator=(const SignalCounted&) = delete;

 private:
  struct sigaction before_ {};
};

TEST_F(FileObserverSignals, DoNotEndTheWaitingForEvents) {
  const SignalCounted counted;
  FileObserver observer;
  Sentinel sentinel(observer);
  deliveringThread(observer);
  for (int count = 1; count <= 10; ++count) {
    signalsTaken = 0;
    ASSERT_EQ(::pthread_kill(pthread_, SIGUSR1), 0);
    ASSERT_TRUE(waitUntil([] { return signalsTaken == 1; }));
    ASSERT_TRUE(sentinel.pass());
  }
}

}  // namespace
}  // namespace KELP::Test
