#pragma once

#include <functional>

/**
 * @file
 * The test program defines `inotify_init1`, `inotify_add_watch`, `eventfd`, `poll`, `read`,
 * `pthread_create` and `pthread_join` itself, so that tests can make the library's calls fail or
 * wait. While nothing below asks for more, they do what the system's do.
 */
namespace KELP::Test {

enum class Call { InotifyInit, InotifyAddWatch, EventFd, Thread };

/** Makes all calls of one kind fail while it lives. One lives at a time for each kind. */
class Refusal {
 public:
  /** @param error what they fail with.
   *  @param after how many succeed before. */
  Refusal(Call call, int error, int after = 0);
  ~Refusal();
  Refusal(const Refusal&) = delete;
  Refusal& operator=(const Refusal&) = delete;

 private:
  Call call_;
};

/** Holds up, until it is opened, whoever would return from `poll` with something to read. So the
 *  kernel's queue of events fills. One lives at a time. */
class PollGate {
 public:
  PollGate();
  ~PollGate() { open(); }
  PollGate(const PollGate&) = delete;
  PollGate& operator=(const PollGate&) = delete;

  void open();
};

/** Calls @p before ahead of each `read` of an inotify instance while it lives, so that the kernel
 *  never runs out of events, however fast they are read. One lives at a time. */
class ReadHook {
 public:
  explicit ReadHook(std::function<void()> before);
  ~ReadHook();
  ReadHook(const ReadHook&) = delete;
  ReadHook& operator=(const ReadHook&) = delete;
};

/** How many calls of `pthread_join` have begun. */
[[nodiscard]] int joinsBegun();

}  // namespace KELP::Test
