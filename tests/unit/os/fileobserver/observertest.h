#pragma once

#include "support/logcapture.h"
#include "support/temporarydirectory.h"
#include "support/waituntil.h"
#include "unit/os/fileobserver/watchdog.h"

#include <os/fileobserver.h>

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace KELP::Test {

using OS::FileObserver;

/** Something that happens once, on another thread. */
class Flag {
 public:
  void set();
  /** @return whether it was set in time. */
  [[nodiscard]] bool wait() const;
  /** Waits until it is set, for callbacks that a test holds up: were they to go on by themselves,
   *  they would end what waits for them in error. */
  void hold() const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  bool isSet_ = false;
};

/** What a callback was called with. */
struct Seen {
  int wd;
  std::uint32_t mask;
  std::uint32_t cookie;
  std::uint32_t len;
  std::string name;
  void* userData;

  bool operator==(const Seen&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Seen& seen);

[[nodiscard]] Seen seenOf(const inotify_event& event, void* userData);

/** The masks, or the names, of several. */
[[nodiscard]] std::vector<std::uint32_t> masksOf(const std::vector<Seen>& seen);
[[nodiscard]] std::vector<std::string> namesOf(const std::vector<Seen>& seen);

/** Keeps what its callbacks are called with, in their order. */
class Recorder {
 public:
  /** One of any number of callbacks, which may outlive the object. */
  [[nodiscard]] FileObserver::Callback callback() const;
  [[nodiscard]] std::vector<Seen> seen() const;
  /** Waits until there are @p count, but not for ever. @return what there is then. */
  [[nodiscard]] std::vector<Seen> waitFor(std::size_t count) const;

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Seen> seen;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/** A watch of its own that tells when the observer has delivered all that it was going to. */
class Sentinel {
 public:
  explicit Sentinel(FileObserver& observer);

  /** Waits until the callbacks for all that happened before are over. @return whether they were in
   *  time. */
  [[nodiscard]] bool pass();

 private:
  TemporaryDirectory directory_;
  Recorder recorder_;
  std::size_t passed_ = 0;
};

/** A watch of its own whose callback can be made to take as long as a test needs. */
class Blocker {
 public:
  explicit Blocker(FileObserver& observer);
  ~Blocker() { release(); }
  Blocker(const Blocker&) = delete;
  Blocker& operator=(const Blocker&) = delete;

  /** Returns when the callback is running. @return whether that was in time. Once. */
  [[nodiscard]] bool block();
  /** Lets the callback return. */
  void release() { state_->released.set(); }

 private:
  struct State {
    Flag entered;
    Flag released;
  };
  TemporaryDirectory directory_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/** Makes a new file, or an existing one empty. */
void touch(const std::filesystem::path& path);

/** Raises IN_ATTRIB, and nothing else, for @p path. */
void changeMode(const std::filesystem::path& path);

/** Makes a file and removes it, again and again, on a thread of its own. */
class FileChanger {
 public:
  explicit FileChanger(std::filesystem::path file);
  ~FileChanger();
  FileChanger(const FileChanger&) = delete;
  FileChanger& operator=(const FileChanger&) = delete;

 private:
  std::atomic<bool> isOver_ = false;
  std::thread thread_;
};

/** Runs @p action in several threads at once, in each some times one after the other.
 *  @param action called with the number of the round. */
void atOnce(int threads, int rounds, const std::function<void(int)>& action);

/** A directory to watch, the log, and an end of waiting when something hangs. */
class FileObserverTest : public ::testing::Test {
 protected:
  Watchdog watchdog_{std::chrono::seconds(60),  // First, so that it outlives all that may hang.
                     ::testing::UnitTest::GetInstance()->current_test_info()->name()};
  TemporaryDirectory directory_;
  LogCapture log_;
};

}  // namespace KELP::Test
