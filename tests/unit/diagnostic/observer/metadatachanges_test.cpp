#include "os/filedescriptor.h"
#include "unit/diagnostic/observer/observerfixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <ostream>
#include <system_error>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;
using OS::FileDescriptor;

FileDescriptor opened(const fs::path& file, int flags) {
  FileDescriptor descriptor(::open(file.c_str(), flags | O_CLOEXEC, 0644));
  if (!descriptor) {
    throw std::system_error(errno, std::system_category(), file.string());
  }
  return descriptor;
}

void writeTo(const FileDescriptor& file) {
  ASSERT_EQ(::write(file.get(), "x", 1), 1);
}

/** One directory that is watched, and its metadata file. */
class ObserverMetadata : public ObserverTest {
 protected:
  ObserverMetadata() { fs::create_directory(elsewhere_); }

  /** Observes a report that is known. */
  void observeReport() {
    observer().start();
    link(makeBareElsewhere(idText(1)), idText(1));
    EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
  }
  /** Observes a directory without metadata. */
  void observeDirectory() {
    observer().start();
    fs::create_directory(dirOf(idText(1)));
    EXPECT_THAT(eventsUntilNow(), IsEmpty());
  }
  [[nodiscard]] fs::path file() const { return metadataOf(idText(1)); }

  fs::path elsewhere_ = directory_ / "others";
};

TEST_F(ObserverMetadata, WrittenInOneGoIsAddedOnce) {
  observer().start();
  whileDelivering([&] {
    fs::create_directory(dirOf(idText(1)));
    writeFile(file(), "text");
  });
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
  writeFile(file(), "other text");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
}

TEST_F(ObserverMetadata, IsAddedWhenTheFileIsMadeAndUpdatedAfterItWasWritten) {
  observeDirectory();
  {
    const FileDescriptor made = opened(file(), O_WRONLY | O_CREAT);
    EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
    writeTo(made);
    EXPECT_THAT(eventsUntilNow(), IsEmpty());
  }
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
}

/** A way for something named like the metadata file to appear in a directory. */
struct Appearance {
  const char* what;
  std::function<void(const fs::path& file, const fs::path& elsewhere)> act;
};

void PrintTo(const Appearance& appearance, std::ostream* out) {
  *out << appearance.what;
}

class ObserverMetadataAppears : public ObserverMetadata,
                                public testing::WithParamInterface<Appearance> {};

TEST_P(ObserverMetadataAppears, IsAddedOnce) {
  writeFile(elsewhere_ / "other", "text");
  observeDirectory();
  GetParam().act(file(), elsewhere_ / "other");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
}

INSTANTIATE_TEST_SUITE_P(
    All, ObserverMetadataAppears,
    testing::Values(
        Appearance{"AsAnEmptyFile",
                   [](const fs::path& file, const fs::path&) { writeFile(file, ""); }},
        Appearance{"ByRename",
                   [](const fs::path& file, const fs::path& other) { fs::rename(other, file); }},
        Appearance{"ByHardLink", [](const fs::path& file,
                                    const fs::path& other) { fs::create_hard_link(other, file); }},
        Appearance{"AsALink", [](const fs::path& file,
                                 const fs::path& other) { fs::create_symlink(other, file); }},
        Appearance{"AsADirectory",
                   [](const fs::path& file, const fs::path&) { fs::create_directory(file); }},
        Appearance{"AsAFifo", [](const fs::path& file,
                                 const fs::path&) { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); }}),
    [](const auto& all) { return all.param.what; });

TEST_F(ObserverMetadata, AsALinkToNothingIsNotThere) {
  observeDirectory();
  fs::create_symlink("nowhere", file());
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  writeFile(dirOf(idText(1)) / "nowhere", "");
  EXPECT_THAT(eventsUntilNow(), IsEmpty()) << "another file";
}

/** Something that happens in a watched directory, and how many updates it is. */
struct Change {
  const char* what;
  int updates;
  std::function<void(const fs::path& file, const fs::path& elsewhere)> act;
};

void PrintTo(const Change& change, std::ostream* out) {
  *out << change.what;
}

class ObserverMetadataChange : public ObserverMetadata,
                               public testing::WithParamInterface<Change> {};

TEST_P(ObserverMetadataChange, OfAKnownReportIsToldAsItsUpdates) {
  observeReport();
  GetParam().act(file(), elsewhere_);
  const Events expected(static_cast<std::size_t>(GetParam().updates), updated(idText(1)));
  EXPECT_EQ(eventsUntilNow(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Writing, ObserverMetadataChange,
    testing::Values(
        Change{"OpeningAndClosing", 0,
               [](const fs::path& file, const fs::path&) { opened(file, O_RDWR); }},
        Change{"Reading", 0,
               [](const fs::path& file, const fs::path&) { static_cast<void>(readFile(file)); }},
        Change{"WritingAndClosing", 1,
               [](const fs::path& file, const fs::path&) { writeTo(opened(file, O_WRONLY)); }},
        Change{"WritingTwiceAndClosing", 1,
               [](const fs::path& file, const fs::path&) {
                 const FileDescriptor open = opened(file, O_WRONLY);
                 writeTo(open);
                 writeTo(open);
               }},
        Change{"WritingInTwoGoes", 2,
               [](const fs::path& file, const fs::path&) {
                 writeTo(opened(file, O_WRONLY));
                 writeTo(opened(file, O_WRONLY));
               }},
        Change{"WritingAndThenOpeningAndClosing", 1,
               [](const fs::path& file, const fs::path&) {
                 writeTo(opened(file, O_WRONLY));
                 opened(file, O_WRONLY);
               }},
        Change{"TheCloseOfAnotherWriter", 1,
               [](const fs::path& file, const fs::path&) {
                 const FileDescriptor writer = opened(file, O_WRONLY);
                 FileDescriptor idle = opened(file, O_WRONLY);
                 writeTo(writer);
                 idle.reset();
               }},
        Change{"CuttingOnly", 0,
               [](const fs::path& file, const fs::path&) { fs::resize_file(file, 10); }},
        Change{"CuttingAndLaterOpeningAndClosing", 1,
               [](const fs::path& file, const fs::path&) {
                 fs::resize_file(file, 10);
                 opened(file, O_WRONLY);
               }},
        Change{"ChangingPermissions", 0,
               [](const fs::path& file, const fs::path&) {
                 fs::permissions(file, fs::perms::owner_all);
               }}),
    [](const auto& all) { return all.param.what; });

INSTANTIATE_TEST_SUITE_P(
    Replacing, ObserverMetadataChange,
    testing::Values(Change{"RenamingAnotherOverIt", 1,
                           [](const fs::path& file, const fs::path& elsewhere) {
                             writeFile(elsewhere / "new", "text");
                             fs::rename(elsewhere / "new", file);
                           }},
                    Change{"RenamingANeighbourOverIt", 1,
                           [](const fs::path& file, const fs::path&) {
                             const fs::path neighbour = file.parent_path() / "metadata.db.new";
                             writeFile(neighbour, "text");
                             fs::rename(neighbour, file);
                           }},
                    Change{"RenamingItAway", 0,
                           [](const fs::path& file, const fs::path& elsewhere) {
                             fs::rename(file, elsewhere / "away");
                           }},
                    Change{"RenamingItAwayAndBack", 1,
                           [](const fs::path& file, const fs::path& elsewhere) {
                             fs::rename(file, elsewhere / "away");
                             fs::rename(elsewhere / "away", file);
                           }},
                    Change{"WritingItElsewhere", 0,
                           [](const fs::path& file, const fs::path& elsewhere) {
                             fs::create_hard_link(file, elsewhere / "same");
                             writeFile(elsewhere / "same", "text");
                           }}),
    [](const auto& all) { return all.param.what; });

/** Makes, writes, renames and deletes a file of a report. */
void useFile(const fs::path& file) {
  writeFile(file, "");
  writeFile(file, "text");
  fs::rename(file, file.string() + ".other");
  fs::rename(file.string() + ".other", file);
  fs::remove(file);
}

INSTANTIATE_TEST_SUITE_P(OtherFiles, ObserverMetadataChange,
                         testing::Values(Change{"Lock", 0,
                                                [](const fs::path& file, const fs::path&) {
                                                  useFile(file.parent_path() / "lock");
                                                }},
                                         Change{"LongerName", 0,
                                                [](const fs::path& file, const fs::path&) {
                                                  useFile(file.string() + "x");
                                                }},
                                         Change{"ShorterName", 0,
                                                [](const fs::path& file, const fs::path&) {
                                                  useFile(file.parent_path() / "metadata.d");
                                                }},
                                         Change{"OtherCase", 0,
                                                [](const fs::path& file, const fs::path&) {
                                                  useFile(file.parent_path() / "Metadata.db");
                                                }},
                                         Change{"InASubdirectory", 0,
                                                [](const fs::path& file, const fs::path&) {
                                                  const fs::path contents =
                                                      file.parent_path() / "contentfiles";
                                                  fs::create_directory(contents);
                                                  useFile(contents / "metadata.db");
                                                  fs::remove(contents);
                                                }}),
                         [](const auto& all) { return all.param.what; });

TEST_F(ObserverMetadata, IsUpdatedAfterTheCloseAndNotBefore) {
  observeReport();
  {
    const FileDescriptor writer = opened(file(), O_WRONLY);
    writeTo(writer);
    EXPECT_THAT(eventsUntilNow(), IsEmpty());
    writeTo(writer);
    EXPECT_THAT(eventsUntilNow(), IsEmpty());
  }
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
}

TEST_F(ObserverMetadata, IsUpdatedByTheFirstOfTwoClosesOnly) {
  observeReport();
  FileDescriptor writer = opened(file(), O_WRONLY);
  FileDescriptor idle = opened(file(), O_WRONLY);
  writeTo(writer);
  idle.reset();
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
  writer.reset();
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
}

TEST_F(ObserverMetadata, OfTwoReportsIsToldForEach) {
  observeReport();
  link(makeBareElsewhere(idText(2)), idText(2));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(2))));
  const FileDescriptor idle = opened(metadataOf(idText(2)), O_WRONLY);
  writeTo(opened(file(), O_WRONLY));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
  writeTo(opened(metadataOf(idText(2)), O_WRONLY));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(2))));
}

TEST_F(ObserverMetadata, ChangedByTheLibraryIsAnUpdateForEachRecord) {
  makeReport(kIdText);
  const auto report = open();
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(kIdText)));
  const std::size_t before = recordCount();
  ASSERT_THAT(report->acquireWriteLock(false), Succeeds());
  ASSERT_THAT(report->setDescription("some words"), Succeeds());
  const std::size_t changes = recordsSince(before).size();
  ASSERT_GE(changes, 1U);
  EXPECT_EQ(eventsUntilNow(), Events(changes, updated(kIdText)));
}

TEST_F(ObserverMetadata, OpenedAndListedByTheLibraryIsNotChanged) {
  makeReport(kIdText);
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(kIdText)));
  EXPECT_NE(open(), nullptr);
  EXPECT_EQ(repository_.getAllReportUuids().size(), 1U);
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
