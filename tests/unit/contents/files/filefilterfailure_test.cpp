// Filters that do not get to their end: the stored file and the store stay as they are, and no
// scratch file stays at all.

#include "unit/contents/files/filesfixture.h"
#include "unit/diagnostic/limits.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
namespace fs = std::filesystem;
using Filter = DiagnosticReport::FileFilter;

constexpr const char* kAborted = "Filter aborted without error condition";
constexpr const char* kMissing = "Temporary file to filter does not exist";
constexpr const char* kNoVariation =
    "Unable to get path for report file variation that does not exist";
constexpr const char* kFilterLine = "Failed to write updated contents for file variation filter";
constexpr const char* kTmpFailure = "Failed to create temp directory for report";
constexpr const char* kMoveLine = "Failed to copy temporary file to report file variations";

bool writeInstead(std::ifstream&, std::ofstream& output) {
  output << "instead";
  return true;
}

class FileFilterFailure : public FilesTest {
 protected:
  FileFilterFailure() {
    addFile(kLevel, "content");
    fs::create_directory(tmpDirectory());
  }

  Result filter(const Filter& filter) {
    return report().filterFileVariation(kProperty, kLevel, filter);
  }
  Report::TemporaryFileResult filterToTemporaryFile(const Filter& filter) {
    return report().filterFileVariationToTemporaryFile(kProperty, kLevel, filter);
  }

  /** A filter that must not be called. */
  static Filter never() {
    return [](std::ifstream&, std::ofstream&) {
      ADD_FAILURE() << "the filter was called";
      return true;
    };
  }

  /** Expects that both operations fail so, with these lines, and change nothing. */
  template <typename Matcher>
  void expectBothFail(const Filter& used, const Matcher& failure,
                      const std::vector<LogLine>& lines) {
    const DiskState before = now();
    EXPECT_THAT(filter(used), failure);
    EXPECT_EQ(log_.take(), lines);
    expectNothingChanged(before);
    EXPECT_THAT(filterToTemporaryFile(used), failure);
    EXPECT_EQ(log_.take(), lines);
    expectNothingChanged(before);
  }

  /** Expects that both operations let the exception pass and change nothing. */
  template <typename Exception>
  void expectBothThrow(const Filter& used) {
    const DiskState before = now();
    const std::vector<int> descriptors = descriptorsBelow(directory_.path());
    EXPECT_THROW(static_cast<void>(filter(used)), Exception);
    EXPECT_THROW(static_cast<void>(filterToTemporaryFile(used)), Exception);
    EXPECT_EQ(descriptorsBelow(directory_.path()), descriptors);
    EXPECT_THAT(log_.take(), IsEmpty());
    expectNothingChanged(before);
  }
};

TEST_F(FileFilterFailure, ByReturningFalseWritesNoLine) {
  expectBothFail(
      [](std::ifstream& input, std::ofstream& output) {
        writeInstead(input, output);
        return false;
      },
      Refuses(kAborted), {});
}

TEST_F(FileFilterFailure, ByReturningFalseLeavesNoDescriptorOpen) {
  const std::vector<int> before = descriptorsBelow(directory_.path());
  EXPECT_THAT(filter([](std::ifstream&, std::ofstream&) { return false; }), Refuses(kAborted));
  EXPECT_EQ(descriptorsBelow(directory_.path()), before);
}

TEST_F(FileFilterFailure, ByAnExceptionPassesItOn) {
  expectBothThrow<std::domain_error>([](std::ifstream&, std::ofstream& output) -> bool {
    output << "instead" << std::flush;
    throw std::domain_error("from the filter");
  });
}

TEST_F(FileFilterFailure, ByAnExceptionOfItsStreamPassesItOn) {
  expectBothThrow<std::ios_base::failure>([](std::ifstream& input, std::ofstream&) {
    input.exceptions(std::ios::failbit);
    int number = 0;
    input >> number;
    return true;
  });
}

TEST_F(FileFilterFailure, ByAnEmptyFunctionIsABadCall) {
  expectBothThrow<std::bad_function_call>(nullptr);
}

TEST_F(FileFilterFailure, AfterWhichAnotherFilterWorks) {
  EXPECT_THROW(static_cast<void>(filter([](std::ifstream&, std::ofstream&) -> bool {
                 throw std::domain_error("from the filter");
               })),
               std::domain_error);
  EXPECT_THAT(filter(writeInstead), Succeeds());
  EXPECT_EQ(readFile(storedFile()), "instead");
}

TEST_F(FileFilterFailure, OfAFileThatIsGoneIsNotAttempted) {
  fs::remove(storedFile());
  expectBothFail(
      never(), Refuses(kMissing),
      errorLines({"Temporary file (" + storedFile().string() + ") to filter does not exist"}));
  fs::remove_all(dir() / "contentfiles");
  expectBothFail(
      never(), Refuses(kMissing),
      errorLines({"Temporary file (" + storedFile().string() + ") to filter does not exist"}));
}

TEST_F(FileFilterFailure, OfALinkToNothingIsNotAttempted) {
  fs::remove(storedFile());
  fs::create_symlink(outside() / "missing", storedFile());
  expectBothFail(
      never(), Refuses(kMissing),
      errorLines({"Temporary file (" + storedFile().string() + ") to filter does not exist"}));
}

TEST_F(FileFilterFailure, OfAFileThatCannotBeExaminedIsAnException) {
  fs::remove(storedFile());
  fs::create_symlink(kFileName, storedFile());
  expectBothThrow<fs::filesystem_error>(never());
}

TEST_F(FileFilterFailure, OfAMissingVariationIsNotAttempted) {
  const DiskState before = now();
  EXPECT_THAT(report().filterFileVariation(kProperty, 1, never()), Refuses(kNoVariation));
  EXPECT_THAT(report().filterFileVariation("other", kLevel, never()), Refuses(kNoVariation));
  EXPECT_THAT(report().filterFileVariationToTemporaryFile(kProperty, 1, never()),
              Refuses(kNoVariation));
  EXPECT_EQ(log_.take(), errorLines({kNoVariation, kNoVariation, kNoVariation}));
  expectNothingChanged(before);
}

TEST_F(FileFilterFailure, OfAPropertyOfAnotherTypeIsNotAttempted) {
  ASSERT_THAT(report().createReportStringProperty("text", {}), Succeeds());
  ASSERT_THAT(report().addReportStringVariation("text", kLevel, "value", false), Succeeds());
  EXPECT_THAT(report().filterFileVariation("text", kLevel, never()), Refuses(kNoVariation));
  EXPECT_EQ(log_.take(), errorLines({kNoVariation}));
}

TEST_F(FileFilterFailure, OfAFileOutsideIsNotAttempted) {
  storeVariations({fileVariation(decoy(), kLevel)});
  expectBothFail(never(), Refuses(kNotWithinReport),
                 errorLines({"Path: " + decoy().string() +
                             ", is not within report directory: " + dir().string()}));
}

TEST_F(FileFilterFailure, WithoutAScratchFileIsNotAttemptedWhateverTheVariation) {
  fs::remove(tmpDirectory());
  fs::create_symlink(outside() / "missing", tmpDirectory());
  store(kContentsKey, std::nullopt);
  expectBothFail(never(), FailsWith(std::error_code(EEXIST, std::generic_category()), kTmpFailure),
                 errorLines({kTmpFailure, kFilterLine}));
}

TEST_F(FileFilterFailure, OfAReportOfNothingIsNotAttempted) {
  DiagnosticReport nothing;
  const std::string noDirectory = "Unable to get report path for report with null UUID";
  EXPECT_THAT(nothing.filterFileVariation(kProperty, kLevel, never()), Refuses(noDirectory));
  EXPECT_EQ(log_.take(),
            errorLines({noDirectory,
                        "Unable to prepare relative report path for report with unknown report "
                        "directory",
                        "Failed to get report temporary directory path", kFilterLine}));
}

TEST_F(FileFilterFailure, MakesTheScratchDirectoryBeforeItLooksForTheVariation) {
  fs::remove(tmpDirectory());
  EXPECT_THAT(report().filterFileVariation("other", kLevel, never()), Refuses(kNoVariation));
  EXPECT_THAT(namesIn(tmpDirectory()), IsEmpty());
}

TEST_F(FileFilterFailure, AStreamThatCouldNotBeOpenedReachesTheFilterAsFailed) {
  fs::remove(tmpDirectory());
  writeFile(tmpDirectory(), "a file");
  expectBothFail(
      [](std::ifstream& input, std::ofstream& output) {
        EXPECT_TRUE(input.is_open());
        EXPECT_FALSE(output.is_open());
        EXPECT_TRUE(output.fail());
        return false;
      },
      Refuses(kAborted), {});
}

TEST_F(FileFilterFailure, AnInputThatCouldNotBeOpenedReachesTheFilterAsFailed) {
  const Permissions unreadable(storedFile(), 0);
  const Permissions writable(tmpDirectory(), 0777);
  const DiskState before = now();
  {
    const Unprivileged nobody;
    EXPECT_THAT(filter([](std::ifstream& input, std::ofstream& output) {
                  EXPECT_FALSE(input.is_open());
                  EXPECT_TRUE(input.fail());
                  EXPECT_TRUE(output.is_open());
                  return false;
                }),
                Refuses(kAborted));
  }
  expectNothingChanged(before);
}

TEST_F(FileFilterFailure, OutputThatIsAcceptedWithoutAScratchFileCannotBeStored) {
  fs::remove(tmpDirectory());
  writeFile(tmpDirectory(), "a file");
  const DiskState before = now();
  EXPECT_THAT(filter(writeInstead),
              FailsWith(std::error_code(ENOTDIR, std::generic_category()), kCopyFailure));
  EXPECT_EQ(log_.take(), errorLines({std::string(kCopyFailure) + ": Not a directory", kMoveLine}));
  expectOnlyStamped(before);
}

TEST_F(FileFilterFailure, AFilterThatPurgesItsScratchFileLeavesTheStoredFile) {
  EXPECT_THAT(filter([&](std::ifstream& input, std::ofstream& output) {
                EXPECT_THAT(report().purgeReportTemporaryFiles(), Succeeds());
                return writeInstead(input, output);
              }),
              FailsWith(std::error_code(ENOENT, std::generic_category()), kCopyFailure));
  EXPECT_EQ(log_.take(),
            errorLines({std::string(kCopyFailure) + ": No such file or directory", kMoveLine}));
  EXPECT_EQ(readFile(storedFile()), "content");
}

TEST_F(FileFilterFailure, AFilterThatRemovesThePropertyDoesNotBringItBack) {
  EXPECT_THAT(filter([&](std::ifstream& input, std::ofstream& output) {
                EXPECT_THAT(report().removeReportFileProperty(kProperty), Succeeds());
                return writeInstead(input, output);
              }),
              Refuses(kNoDestinationLine));
  EXPECT_EQ(log_.take(), errorLines({kNoDestinationLine, kMoveLine}));
  EXPECT_THAT(namesIn(tmpDirectory()), IsEmpty());
  EXPECT_THAT(report().getReportContents(), testing::Optional(IsEmpty()));
}

TEST_F(FileFilterFailure, WithoutTheWriteLockIsNoticedAfterTheFilter) {
  unlock();
  const DiskState before = now();
  int calls = 0;
  EXPECT_THAT(filter([&](std::ifstream& input, std::ofstream& output) {
                ++calls;
                return writeInstead(input, output);
              }),
              Refuses(kNoWriteLockLine));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(log_.take(), errorLines({kNoWriteLockLine, kMoveLine}));
  expectNothingChanged(before);
}

TEST_F(FileFilterFailure, InAnotherObjectWhileTheLockIsHeldWaitsAndGoesOn) {
  const auto* const contended =
      "Failed acquire read lock for report. errno = 11 (Resource temporarily "
      "unavailable)";
  EXPECT_THAT(filter([&](std::ifstream& input, std::ofstream& output) {
                const auto other = open();
                EXPECT_NE(other, nullptr);
                EXPECT_THAT(other->getReportFileVariationPath(kProperty, kLevel),
                            Holds(storedFile()));
                return writeInstead(input, output);
              }),
              Succeeds());
  std::vector<LogLine> lines = log_.take();
  ASSERT_GT(lines.size(), 1U);
  EXPECT_EQ(lines.back(),
            errorLine("Unable to acquire opening read lock for report " + lockFile().string()));
  lines.pop_back();
  EXPECT_THAT(lines, testing::Each(errorLine(contended)));
  EXPECT_EQ(readFile(storedFile()), "instead");
}

}  // namespace
}  // namespace KELP::Diagnostic
