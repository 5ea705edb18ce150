// A callback that lets an exception out loses nobody else's events.

#include "unit/os/fileobserver/observertest.h"

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;

struct Throwing {
  const char* name;
  FileObserver::Callback callback;
  std::string line;
};

class FileObserverExceptions : public FileObserverTest,
                               public ::testing::WithParamInterface<Throwing> {};

INSTANTIATE_TEST_SUITE_P(
    , FileObserverExceptions,
    ::testing::Values(
        Throwing{"Standard",
                 [](inotify_event* event, void*) {
                   throw std::runtime_error("%s%n 100% " +
                                            std::string(static_cast<const char*>(event->name)));
                 },
                 "A callback of the file observer ended with an exception: %s%n 100% bad"},
        Throwing{"Number", [](inotify_event*, void*) { throw 42; },
                 "A callback of the file observer ended with an unknown exception"},
        Throwing{"Text", [](inotify_event*, void*) { throw "text"; },
                 "A callback of the file observer ended with an unknown exception"},
        Throwing{"Empty", nullptr,
                 std::string("A callback of the file observer ended with an exception: ") +
                     std::bad_function_call().what()}),
    [](const auto& test) { return test.param.name; });

TEST_P(FileObserverExceptions, AreLoggedAndDeliveryGoesOn) {
  std::filesystem::create_directory(directory_ / "throws");
  std::filesystem::create_directory(directory_ / "good");
  FileObserver observer;
  Sentinel sentinel(observer);
  Recorder recorder;
  const int wd = observer.addWatch(directory_ / "throws", IN_CREATE, GetParam().callback, nullptr);
  ASSERT_GE(wd, 1);
  ASSERT_GE(observer.addWatch(directory_ / "good", IN_CREATE, recorder.callback(), nullptr), 1);
  {
    Blocker blocker(observer);
    ASSERT_TRUE(blocker.block());
    touch(directory_ / "throws" / "bad");
    touch(directory_ / "good" / "first");  // Waits behind it.
  }
  EXPECT_THAT(namesOf(recorder.waitFor(1)), ElementsAre("first"));
  EXPECT_THAT(log_.take(), ElementsAre(errorLine(GetParam().line)));

  std::filesystem::remove(directory_ / "throws" / "bad");
  touch(directory_ / "throws" / "bad");
  ASSERT_TRUE(sentinel.pass());
  EXPECT_THAT(log_.take(), ElementsAre(errorLine(GetParam().line))) << "the watch is still there";
  EXPECT_TRUE(observer.rmWatch(wd));
}

}  // namespace
}  // namespace KELP::Test
