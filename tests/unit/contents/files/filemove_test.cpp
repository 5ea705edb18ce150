// Moving a scratch file into a file property: a copy, and then the end of the scratch file.

#include "unit/contents/files/filesfixture.h"

#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reporttemporaryfile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Pair;
namespace fs = std::filesystem;

constexpr const char* kMoveLine = "Failed to copy temporary file to report file variations";

class FileMove : public FilesTest {
 protected:
  FileMove() { fs::create_directories(variationDirectory()); }

  /** A scratch file with this content; without one, only its name. */
  std::shared_ptr<ReportTemporaryFile> scratch(const std::optional<std::string>& content) {
    auto file = report().createReportTemporaryFile().value();
    if (content) writeFile(file->getPath().value(), *content);
    return file;
  }

  Result move(std::shared_ptr<ReportTemporaryFile> file, bool overwrite = false) {
    return report().moveReportTemporaryFileToFileProperty(kProperty, kLevel, std::move(file),
                                                          kFileName, overwrite);
  }

  /** Expects a refusal that changes nothing, with a line like its message. */
  void expectRefused(std::shared_ptr<ReportTemporaryFile> file, const std::string& message) {
    const DiskState before = now();
    EXPECT_THAT(move(std::move(file)), Refuses(message));
    EXPECT_EQ(log_.take(), errorLines({message}));
    expectNothingChanged(before);
  }

  /** Expects that the handle still owns its file. */
  static void expectKept(const std::shared_ptr<ReportTemporaryFile>& file) {
    ASSERT_TRUE(file->isValid());
    EXPECT_EQ(readFile(file->getPath().value()), "scratch");
  }
};

TEST_F(FileMove, StoresTheFileAndEndsTheHandleOfEveryOwner) {
  const auto file = scratch("scratch");
  const auto owner = file;
  const fs::path path = file->getPath().value();
  const DiskState before = now();
  EXPECT_THAT(move(file), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_FALSE(file->isValid());
  EXPECT_FALSE(owner->isValid());
  EXPECT_EQ(owner->getPath(), std::nullopt);
  EXPECT_THAT(
      changesSince(before),
      testing::UnorderedElementsAre(Pair(entry("contentfiles/log/2/a.txt"), EndsWith(": scratch")),
                                    Pair(entry("tmp/" + path.filename().string()), "gone")));
  EXPECT_THAT(keysSince(before), ElementsAre("modified", kContentsKey));
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(storedFile(), kLevel)));
}

TEST_F(FileMove, IsACopyOfEveryByte) {
  std::string content(5U << 20U, '\0');
  for (std::size_t i = 0; i < content.size(); i += 97)
    content[i] = static_cast<char>(i / 97);
  EXPECT_THAT(move(scratch(content)), Succeeds());
  EXPECT_TRUE(readFile(storedFile()) == content);
}

TEST_F(FileMove, WithoutANameTakesThatOfTheProperty) {
  EXPECT_THAT(report().moveReportTemporaryFileToFileProperty(kProperty, kLevel, scratch("scratch"),
                                                             "", false),
              Succeeds());
  EXPECT_EQ(readFile(storedFile(kLevel, kProperty)), "scratch");
}

TEST_F(FileMove, OverwritesWhenAllowedAndKeepsTheRecordedPath) {
  const fs::path path = addFile(kLevel, "former", "former.txt");
  const auto record = stored(kContentsKey);
  EXPECT_THAT(move(scratch("scratch"), true), Succeeds());
  EXPECT_EQ(readFile(path), "scratch");
  EXPECT_EQ(stored(kContentsKey), record);
}

TEST_F(FileMove, AcceptsAHandleOfAnyDirectory) {
  const auto file = std::make_shared<ReportTemporaryFile>(outside());
  writeFile(file->getPath().value(), "from outside");
  EXPECT_THAT(move(file), Succeeds());
  EXPECT_EQ(readFile(storedFile()), "from outside");
  EXPECT_THAT(namesIn(outside()), IsEmpty());
}

TEST_F(FileMove, NeedsAHandle) {
  unlock();
  expectRefused(nullptr, "Temporary file to move to report is null");
}

TEST_F(FileMove, NeedsAValidHandle) {
  unlock();
  const std::string message = "Temporary file to move to report is not valid";
  expectRefused(std::make_shared<ReportTemporaryFile>(std::nullopt), message);
  const auto cleaned = scratch("scratch");
  cleaned->cleanup();
  expectRefused(cleaned, message);
  const auto taken = scratch("scratch");
  const ReportTemporaryFile taker(std::move(*taken));
  expectRefused(taken, message);
}

TEST_F(FileMove, OfAFileThatWasMovedIsRefused) {
  const auto file = scratch("scratch");
  ASSERT_THAT(move(file), Succeeds());
  expectRefused(file, "Temporary file to move to report is not valid");
}

TEST_F(FileMove, LooksAtTheHandleBeforeTheReport) {
  DiagnosticReport nothing;
  EXPECT_THAT(nothing.moveReportTemporaryFileToFileProperty(kProperty, kLevel, nullptr, "", true),
              Refuses("Temporary file to move to report is null"));
  EXPECT_EQ(log_.take(), errorLines({"Temporary file to move to report is null"}));
}

TEST_F(FileMove, WithoutTheWriteLockKeepsTheFile) {
  const auto file = scratch("scratch");
  ASSERT_THAT(report().acquireReadLock(true), Succeeds());
  const DiskState before = now();
  EXPECT_THAT(move(file), Refuses(kNoWriteLockLine));
  EXPECT_EQ(log_.take(), errorLines({kNoWriteLockLine, kMoveLine}));
  expectNothingChanged(before);
  expectKept(file);
}

TEST_F(FileMove, OntoAnExistingVariationKeepsTheFile) {
  addFile(kLevel, "former");
  const auto file = scratch("scratch");
  const DiskState before = now();
  EXPECT_THAT(move(file), Refuses("File already exists and overwrite is not allowed"));
  EXPECT_EQ(log_.take(),
            errorLines({"File already exists and overwrite is not allowed", kMoveLine}));
  expectNothingChanged(before);
  expectKept(file);
}

TEST_F(FileMove, OutOfTheReportKeepsTheFile) {
  const auto file = scratch("scratch");
  const DiskState before = now();
  EXPECT_THAT(report().moveReportTemporaryFileToFileProperty(kProperty, kLevel, file,
                                                             "../../../../x", false),
              Refuses(kNotWithinReport));
  auto lines = outsideLines(variationDirectory() / "../../../../x", dir(), kNoDestinationLine);
  lines.push_back(errorLine(kMoveLine));
  EXPECT_EQ(log_.take(), lines);
  expectNothingChanged(before);
  expectKept(file);
}

TEST_F(FileMove, OfAFileThatWasNeverWrittenFailsAndKeepsTheHandle) {
  const auto file = scratch(std::nullopt);
  const DiskState before = now();
  EXPECT_THAT(move(file),
              FailsWith(std::error_code(ENOENT, std::generic_category()), kCopyFailure));
  EXPECT_EQ(log_.take(),
            errorLines({std::string(kCopyFailure) + ": No such file or directory", kMoveLine}));
  expectOnlyStamped(before);
  EXPECT_TRUE(file->isValid());
}

TEST_F(FileMove, AfterAPurgeFailsAndCanBeRepeated) {
  const auto file = scratch("scratch");
  ASSERT_THAT(report().purgeReportTemporaryFiles(), Succeeds());
  EXPECT_FALSE(move(file).has_value());
  fs::create_directory(tmpDirectory());
  writeFile(file->getPath().value(), "written again");
  EXPECT_THAT(move(file), Succeeds());
  EXPECT_EQ(readFile(storedFile()), "written again");
}

}  // namespace
}  // namespace KELP::Diagnostic
