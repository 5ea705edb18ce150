#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
namespace fs = std::filesystem;

/** A client whose callback throws. */
class ObserverExceptions : public ObserverTest {
 protected:
  /** Lets the client throw at one event. */
  void throwAt(const ReportEvent& which) {
    recorder_.onEach([which](const ReportEvent& event) {
      if (event == which) {
        throw std::runtime_error("the client's own words");
      }
    });
  }
  /** The one line about the exception on the delivering thread. */
  static std::vector<LogLine> line() {
    return errorLines(
        {"A callback of the file observer ended with an exception: the client's own words"});
  }
  /** Expects that another thread can use the observer. */
  void expectUnlocked() {
    Runner other([&] { static_cast<void>(observer().isValidReport(id_)); });
    other.join();
  }
};

TEST_F(ObserverExceptions, ComeOutOfStartAndLeaveTheObserverStopped) {
  for (int i = 0; i < 3; ++i) {
    makeReport(idText(i));
  }
  const Events expected = existingReports();
  for (std::size_t at = 0; at < 3; ++at) {
    SCOPED_TRACE(at);
    throwAt(expected[at]);
    try {
      observer().start();
      FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "the client's own words");
    }
    EXPECT_EQ(recorder_.take(),
              Events(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(at) + 1));
    EXPECT_THAT(log_.take(), SizeIs(at + 1)) << "the watches that were made";
    EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
    expectUnlocked();
    recorder_.onEach({});
    observer().stop();
    EXPECT_THAT(log_.take(), IsEmpty());
    observer().start();
    EXPECT_EQ(recorder_.take(), expected);
    observer().stop();
    static_cast<void>(log_.take());
  }
}

TEST_F(ObserverExceptions, ComeOutOfStartWhateverTheyAre) {
  makeReport(idText(1));
  recorder_.onEach([](const ReportEvent&) { throw 42; });
  EXPECT_THROW(observer().start(), int);
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
}

TEST_F(ObserverExceptions, ComeOutOfStartAfterAStop) {
  makeReport(idText(1));
  recorder_.onEach([&](const ReportEvent&) {
    observer().stop();
    throw std::runtime_error("after the stop");
  });
  EXPECT_THROW(observer().start(), std::runtime_error);
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  expectUnlocked();
  EXPECT_THAT(log_.take(), SizeIs(1)) << "the watch was ended once";
}

TEST_F(ObserverExceptions, AreLoggedOnTheDeliveringThreadAndObservingGoesOn) {
  observer().start();
  throwAt(added(idText(1)));
  link(makeBareElsewhere(idText(1)), idText(1));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
  EXPECT_EQ(log_.take(), line());
  expectUnlocked();
  // The event counts as delivered.
  writeFile(metadataOf(idText(1)), "text");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
  throwAt(updated(idText(1)));
  writeFile(metadataOf(idText(1)), "text");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
  EXPECT_EQ(log_.take(), line());
  link(makeBareElsewhere(idText(2)), idText(2));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(2))));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverExceptions, AreLoggedWithoutWordsWhenTheyHaveNone) {
  observer().start();
  recorder_.onEach([&](const ReportEvent& event) {
    if (event == added(idText(1))) {
      throw 42;
    }
  });
  link(makeBareElsewhere(idText(1)), idText(1));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
  EXPECT_EQ(log_.take(),
            errorLines({"A callback of the file observer ended with an unknown exception"}));
}

TEST_F(ObserverExceptions, AtARemovalDoNotKeepTheWatch) {
  makeReport(idText(1));
  observer().start();
  static_cast<void>(recorder_.take());
  throwAt(removed(idText(1)));
  fs::remove(metadataOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_EQ(log_.take(), line());
  EXPECT_FALSE(isWatched(dirOf(idText(1))));
  fs::remove_all(dirOf(idText(1)));
  link(makeBareElsewhere(idText(1)), idText(1));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
}

TEST_F(ObserverExceptions, ComeOutOfTheHandlersToTheirCaller) {
  linkUnseen(makeBareElsewhere(idText(1)), idText(1));
  observer().start();
  static_cast<void>(log_.take());
  recorder_.onEach([](const ReportEvent&) { throw std::runtime_error("enough"); });
  EXPECT_THROW(tellRoot(IN_CREATE, idText(1)), std::runtime_error);
  EXPECT_EQ(reportWatches().size(), 1U);
  tellRoot(IN_CREATE, idText(1));
  EXPECT_THROW(tellReport(idText(1), IN_CREATE, "metadata.db"), std::runtime_error);
  EXPECT_THROW(tellReport(idText(1), IN_DELETE_SELF), std::runtime_error);
  EXPECT_THAT(reportWatches(), IsEmpty());
  tellReport(idText(1), IN_DELETE_SELF);
  EXPECT_THAT(recorder_.take(),
              ElementsAre(added(idText(1)), updated(idText(1)), removed(idText(1))));
  expectUnlocked();
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverExceptions, AfterAStopOnTheDeliveringThreadLeaveTheObserverStopped) {
  observer().start();
  recorder_.onEach([&](const ReportEvent&) {
    observer().stop();
    throw std::runtime_error("after the stop");
  });
  link(makeBareElsewhere(idText(1)), idText(1));
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  EXPECT_THAT(log_.take(),
              testing::Contains(errorLine(
                  "A callback of the file observer ended with an exception: after the stop")));
  EXPECT_THAT(recorder_.take(), ElementsAre(added(idText(1))));
  expectUnlocked();
}

TEST_F(ObserverExceptions, OfARestartOnTheDeliveringThreadLeaveTheObserverStopped) {
  makeReport(idText(1));
  observer().start();
  static_cast<void>(recorder_.take());
  bool restarted = false;
  recorder_.onEach([&](const ReportEvent&) {
    if (std::exchange(restarted, true)) {
      throw std::runtime_error("not again");
    }
    observer().stop();
    observer().start();
  });
  link(makeBareElsewhere(idText(2)), idText(2));
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  observer().stop();
  EXPECT_THAT(recorder_.take(), ElementsAre(added(idText(2)), existing(idText(1))));
  EXPECT_THAT(log_.take(),
              testing::Contains(
                  errorLine("A callback of the file observer ended with an exception: not again")));
}

/** An observer without a client. */
class ObserverWithoutCallback : public ObserverExceptions {
 protected:
  DiagnosticDataObserver mute_{std::make_shared<DiagnosticData>(root_), {}, nullptr};
};

TEST_F(ObserverWithoutCallback, CannotAnnounceWhatIsThere) {
  makeReport(idText(1));
  EXPECT_THROW(mute_.start(), std::bad_function_call);
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  fs::remove_all(dirOf(idText(1)));
  mute_.start();
  EXPECT_EQ(inotifyInstances().size(), 1U);
}

TEST_F(ObserverWithoutCallback, LogsThatItCannotAnnounceWhatHappens) {
  mute_.start();
  fs::create_directory(root_ / "no identifier");
  link(makeBareElsewhere(idText(1)), idText(1));
  while (log_.lines().empty()) {
    std::this_thread::yield();
  }
  mute_.stop();
  EXPECT_EQ(log_.take().front(),
            errorLine("A callback of the file observer ended with an exception: " +
                      std::string(std::bad_function_call().what())));
}

TEST_F(ObserverWithoutCallback, ThrowsOutOfTheHandlers) {
  linkUnseen(makeBareElsewhere(idText(1)), idText(1));
  mute_.start();
  EXPECT_THROW(mute_.handlePossibleNewReport(uuid(idText(1).c_str()), EventType::REPORT_ADDED),
               std::bad_function_call);
  InotifyRecord deletion(IN_DELETE_SELF);
  EXPECT_THROW(mute_.reportFileObserverCallback(uuid(idText(1).c_str()), deletion.get(), nullptr),
               std::bad_function_call);
}

}  // namespace
}  // namespace KELP::Diagnostic
