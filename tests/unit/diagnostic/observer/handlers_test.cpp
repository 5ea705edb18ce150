#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr EventType kExisting = EventType::REPORT_EXISTING;
constexpr EventType kAdded = EventType::REPORT_ADDED;
constexpr EventType kUpdated = EventType::REPORT_UPDATED;
constexpr EventType kRemoved = EventType::REPORT_REMOVED;
constexpr std::optional<EventType> kNothing;
constexpr const char* kMetadata = "metadata.db";

/** Direct calls of the handlers. The disk only changes in ways of which the kernel tells nothing.
 */
class ObserverHandlers : public ObserverTest {
 protected:
  ObserverHandlers() { fs::create_directory(directory_ / "empty"); }

  /** Lets a report be watched and known. */
  void makeKnown() {
    linkUnseen(makeBareElsewhere("target"), id);
    observer().start();
    observer().handlePossibleNewReport(id_, kAdded);
    EXPECT_THAT(recorder_.take(), ElementsAre(added(id)));
  }
  /** Lets a directory be watched before it had metadata, which it has now. */
  void makeSeen() {
    linkUnseen(directory_ / "empty", id);
    observer().start();
    observer().handlePossibleNewReport(id_, kAdded);
    EXPECT_THAT(recorder_.take(), IsEmpty());
    linkUnseen(makeBareElsewhere("target"), id);
  }
  void expectTold(std::optional<EventType> type) {
    EXPECT_EQ(recorder_.take(), type ? Events{event(*type, id)} : Events{});
  }

  const std::string id = kIdText;
};

/** An event of a report's directory, and what it is to be for reports of either kind. */
struct Told {
  std::uint32_t mask;
  std::string name;
  std::optional<EventType> whenKnown;
  std::optional<EventType> whenSeen;
};

void PrintTo(const Told& told, std::ostream* out) {
  *out << std::hex << "0x" << told.mask << " of \"" << told.name << '"';
}

class ObserverReportHandler : public ObserverHandlers, public testing::WithParamInterface<Told> {};

TEST_P(ObserverReportHandler, TellsWhatItMeansForAKnownReport) {
  makeKnown();
  tellReport(id, GetParam().mask, GetParam().name);
  expectTold(GetParam().whenKnown);
  EXPECT_EQ(reportWatches().empty(), GetParam().whenKnown == kRemoved);
}

TEST_P(ObserverReportHandler, TellsWhatItMeansForAReportThatWasNotValid) {
  makeSeen();
  tellReport(id, GetParam().mask, GetParam().name);
  expectTold(GetParam().whenSeen);
  EXPECT_EQ(reportWatches().size(), 1U);
}

TEST_P(ObserverReportHandler, TellsNothingWhenStopped) {
  linkUnseen(makeBareElsewhere("target"), id);
  tellReport(id, GetParam().mask, GetParam().name);
  makeKnown();
  observer().stop();
  tellReport(id, GetParam().mask, GetParam().name);
  expectTold(kNothing);
  EXPECT_THAT(inotifyInstances(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Metadata, ObserverReportHandler,
    testing::Values(Told{IN_CREATE, kMetadata, kUpdated, kAdded},
                    Told{IN_CREATE | IN_ISDIR, kMetadata, kUpdated, kAdded},
                    Told{IN_MOVED_TO, kMetadata, kUpdated, kAdded},
                    Told{IN_MODIFY | IN_CLOSE_WRITE, kMetadata, kUpdated, kAdded},
                    Told{IN_MODIFY | IN_CREATE, kMetadata, kUpdated, kAdded},
                    Told{IN_MODIFY, kMetadata, kNothing, kNothing},
                    Told{IN_CLOSE_WRITE, kMetadata, kNothing, kNothing},
                    Told{IN_MODIFY | IN_CLOSE_NOWRITE, kMetadata, kNothing, kNothing},
                    Told{IN_MODIFY | IN_MOVED_FROM, kMetadata, kNothing, kNothing},
                    Told{IN_ACCESS | IN_ATTRIB | IN_OPEN, kMetadata, kNothing, kNothing},
                    Told{IN_MOVED_FROM, kMetadata, kNothing, kNothing},
                    Told{0, kMetadata, kNothing, kNothing}));

INSTANTIATE_TEST_SUITE_P(
    Removal, ObserverReportHandler,
    testing::Values(Told{IN_DELETE, kMetadata, kRemoved, kNothing},
                    Told{IN_DELETE | IN_ISDIR, kMetadata, kRemoved, kNothing},
                    Told{IN_DELETE | IN_CREATE, kMetadata, kRemoved, kNothing},
                    Told{IN_DELETE_SELF, "", kRemoved, kNothing},
                    Told{IN_DELETE_SELF, "other", kRemoved, kNothing},
                    Told{IN_DELETE_SELF | IN_MOVED_TO, kMetadata, kRemoved, kNothing},
                    Told{IN_MOVE_SELF, "", kRemoved, kNothing},
                    Told{IN_MOVE_SELF | IN_CREATE, kMetadata, kRemoved, kNothing},
                    Told{IN_DELETE_SELF | IN_MOVE_SELF, "", kRemoved, kNothing}));

INSTANTIATE_TEST_SUITE_P(OtherNames, ObserverReportHandler,
                         testing::Values(Told{IN_CREATE, "", kNothing, kNothing},
                                         Told{IN_DELETE, "", kNothing, kNothing},
                                         Told{IN_DELETE, "lock", kNothing, kNothing},
                                         Told{IN_MOVED_TO, "metadata.d", kNothing, kNothing},
                                         Told{IN_MOVED_TO, "metadata.dbx", kNothing, kNothing},
                                         Told{IN_MOVED_TO, "xmetadata.db", kNothing, kNothing},
                                         Told{IN_MOVED_TO, "Metadata.db", kNothing, kNothing},
                                         Told{IN_MODIFY | IN_CLOSE_WRITE, "metadata.db.new",
                                              kNothing, kNothing},
                                         Told{IN_IGNORED, "", kNothing, kNothing},
                                         Told{IN_UNMOUNT, "", kNothing, kNothing},
                                         Told{IN_Q_OVERFLOW, "", kNothing, kNothing}));

TEST_F(ObserverHandlers, RememberThatMetadataIsBeingWritten) {
  makeKnown();
  tellReport(id, IN_MODIFY, kMetadata);
  tellReport(id, IN_MODIFY, "other");
  tellReport(id, IN_CLOSE_WRITE, "other");
  expectTold(kNothing);
  tellReport(id, IN_CLOSE_WRITE, kMetadata);
  expectTold(kUpdated);
  tellReport(id, IN_CLOSE_WRITE, kMetadata);
  expectTold(kNothing);
}

TEST_F(ObserverHandlers, DoNotTakeTheWritingOfOtherFilesForTheMetadatas) {
  makeKnown();
  tellReport(id, IN_MODIFY, "other");
  tellReport(id, IN_CLOSE_WRITE, kMetadata);
  expectTold(kNothing);
}

TEST_F(ObserverHandlers, TakeTheWritingAsOverWhenTheFileIsReplaced) {
  makeKnown();
  tellReport(id, IN_MODIFY, kMetadata);
  tellReport(id, IN_MOVED_TO, kMetadata);
  expectTold(kUpdated);
  tellReport(id, IN_CLOSE_WRITE, kMetadata);
  expectTold(kNothing);
}

TEST_F(ObserverHandlers, TakeTheWritingAsOverEvenIfThereIsNoReport) {
  makeKnown();
  fs::remove(dirOf(id));
  tellReport(id, IN_MODIFY, kMetadata);
  tellReport(id, IN_CLOSE_WRITE, kMetadata);
  linkUnseen(directory_ / "bare" / "target", id);
  tellReport(id, IN_CLOSE_WRITE, kMetadata);
  expectTold(kNothing);
  tellReport(id, IN_CREATE, kMetadata);
  expectTold(kUpdated);
}

TEST_F(ObserverHandlers, RememberTheWritingBeyondARemoval) {
  makeKnown();
  tellReport(id, IN_MODIFY, kMetadata);
  tellReport(id, IN_DELETE_SELF);
  expectTold(kRemoved);
  tellReport(id, IN_CLOSE_WRITE, kMetadata);
  expectTold(kAdded);
}

TEST_F(ObserverHandlers, TellNothingOfWhatIsNotThere) {
  makeKnown();
  fs::remove(dirOf(id));
  constexpr std::uint32_t kMasks[] = {IN_CREATE, IN_MOVED_TO, IN_MODIFY | IN_CLOSE_WRITE};
  for (const std::uint32_t mask : kMasks) {
    tellReport(id, mask, kMetadata);
    expectTold(kNothing);
  }
  tellReport(id, IN_DELETE, kMetadata);
  expectTold(kRemoved);
  tellReport(id, IN_DELETE, kMetadata);
  expectTold(kNothing);
}

TEST_F(ObserverHandlers, TellOfAReportThatIsNotWatched) {
  linkUnseen(makeBareElsewhere("target"), id);
  observer().start();
  static_cast<void>(log_.take());
  tellReport(id, IN_CREATE, kMetadata);
  expectTold(kAdded);
  EXPECT_THAT(reportWatches(), IsEmpty());
  tellReport(id, IN_DELETE, kMetadata);
  expectTold(kRemoved);
  observer().stop();
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverHandlers, DoNotPassTheirOwnUserDataOn) {
  linkUnseen(makeBareElsewhere("target"), id);
  observer().start();
  int other = 0;
  InotifyRecord creation(IN_CREATE, id);
  observer().rootFileObserverCallback(creation.get(), &other);
  InotifyRecord change(IN_CREATE, kMetadata);
  observer().reportFileObserverCallback(id_, change.get(), &other);
  EXPECT_THAT(recorder_.take(), ElementsAre(added(id), updated(id)));
}

TEST_F(ObserverHandlers, AnnounceAPossibleReportAsTheTypeThatIsAskedFor) {
  observer().start();
  for (int type = 0; type < 4; ++type) {
    const std::string name = idText(type);
    linkUnseen(makeBareElsewhere(name), name);
    observer().handlePossibleNewReport(uuid(name.c_str()), static_cast<EventType>(type));
    EXPECT_THAT(recorder_.take(), ElementsAre(ReportEvent{name, type, &client_}));
    observer().handlePossibleNewReport(uuid(name.c_str()), static_cast<EventType>(type));
    EXPECT_THAT(recorder_.take(), IsEmpty()) << "it is watched already";
  }
  EXPECT_EQ(reportWatches().size(), 4U);
}

TEST_F(ObserverHandlers, AnnounceAPossibleReportNotUntilItHasMetadata) {
  makeSeen();
  observer().handlePossibleNewReport(id_, kExisting);
  expectTold(kNothing);
  tellReport(id, IN_CREATE, kMetadata);
  expectTold(kAdded);
}

TEST_F(ObserverHandlers, DoNothingAboutAPossibleReportWhenStopped) {
  linkUnseen(makeBareElsewhere("target"), id);
  observer().handlePossibleNewReport(id_, kAdded);
  tellRoot(IN_CREATE, id);
  tellRoot(IN_Q_OVERFLOW);
  expectTold(kNothing);
  observer().start();
  observer().stop();
  EXPECT_THAT(log_.take(), testing::Not(testing::Contains(removalLine(-1))));
  observer().handlePossibleNewReport(id_, kAdded);
  tellRoot(IN_CREATE, id);
  tellRoot(IN_Q_OVERFLOW);
  expectTold(kNothing);
  EXPECT_THAT(inotifyInstances(), IsEmpty());
}

/** An event of the root. */
struct RootEvent {
  std::uint32_t mask;
  std::string name;
  bool isCreation;
};

void PrintTo(const RootEvent& event, std::ostream* out) {
  *out << std::hex << "0x" << event.mask << " of \"" << event.name << '"';
}

class ObserverRootHandler : public ObserverHandlers,
                            public testing::WithParamInterface<RootEvent> {};

TEST_P(ObserverRootHandler, LooksAtCreatedIdentifiersOnly) {
  linkUnseen(makeBareElsewhere("target"), id);
  observer().start();
  static_cast<void>(log_.take());
  tellRoot(GetParam().mask, GetParam().name);
  expectTold(GetParam().isCreation ? std::optional(kAdded) : kNothing);
  EXPECT_EQ(reportWatches().size(), GetParam().isCreation ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    All, ObserverRootHandler,
    testing::Values(RootEvent{IN_CREATE, kIdText, true},
                    RootEvent{IN_CREATE | IN_ISDIR, kIdText, true},
                    RootEvent{IN_CREATE | IN_DELETE, kIdText, true},
                    RootEvent{IN_CREATE, "0B3AD2A0-5C1E-4A8E-9F57-D2B1C3E4F5A6", true},
                    RootEvent{IN_CREATE, "", false}, RootEvent{IN_CREATE, "metadata.db", false},
                    RootEvent{IN_CREATE, std::string(kIdText) + "a", false},
                    RootEvent{IN_CREATE, "0b3ad2a0-5c1e-4a8e-9f57-d2b1c3e4f5a", false},
                    RootEvent{IN_MOVED_TO, kIdText, false},
                    RootEvent{IN_DELETE | IN_MOVED_FROM, kIdText, false},
                    RootEvent{IN_ISDIR, kIdText, false}, RootEvent{IN_IGNORED, "", false}));

TEST_F(ObserverHandlers, LookForTheDirectoryAndForWhateverIsNamedLikeTheMetadata) {
  const auto isValid = [&](const char* name) { return observer().isValidReport(uuid(name)); };
  for (int started = 0; started < 2; ++started) {
    SCOPED_TRACE(started);
    const std::string name = idText(started);
    const fs::path file = metadataOf(name);
    EXPECT_FALSE(isValid(name.c_str())) << "no directory";
    fs::create_directory(dirOf(name));
    EXPECT_FALSE(isValid(name.c_str())) << "no metadata";
    writeFile(dirOf(name) / "lock", "");
    EXPECT_FALSE(isValid(name.c_str()));
    writeFile(file, "");
    EXPECT_TRUE(isValid(name.c_str()));
    fs::remove(file);
    fs::create_symlink("nowhere", file);
    EXPECT_FALSE(isValid(name.c_str())) << "a link to nothing";
    writeFile(dirOf(name) / "nowhere", "");
    EXPECT_TRUE(isValid(name.c_str()));
    fs::remove(file);
    fs::create_symlink("metadata.db", file);
    EXPECT_FALSE(isValid(name.c_str())) << "an error is absence";
    fs::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_TRUE(isValid(name.c_str()));
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_TRUE(isValid(name.c_str()));
    fs::remove_all(dirOf(name));
    writeFile(dirOf(name), "a file");
    EXPECT_FALSE(isValid(name.c_str()));
    observer().start();
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
