// Filters that accept their output, and what becomes of it.

#include "unit/contents/files/filesfixture.h"

#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reporttemporaryfile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Key;
using testing::Pair;
namespace fs = std::filesystem;
using Filter = DiagnosticReport::FileFilter;

bool copyAll(std::ifstream& input, std::ofstream& output) {
  std::copy(std::istreambuf_iterator<char>(input), {}, std::ostreambuf_iterator<char>(output));
  return true;
}

bool dropLinesWithHome(std::ifstream& input, std::ofstream& output) {
  for (std::string line; std::getline(input, line);) {
    if (line.find("/home/") == std::string::npos) output << line << '\n';
  }
  return true;
}

class FileFilterTest : public FilesTest {
 protected:
  Result filter(const Filter& filter) {
    return report().filterFileVariation(kProperty, kLevel, filter);
  }

  /** Expects that the stored file became @p content, and that nothing else changed but the stamp.
   */
  void expectReplaced(const Filter& used, const std::string& content) {
    const auto record = stored(kContentsKey);
    fs::create_directory(tmpDirectory());
    const DiskState before = now();
    EXPECT_THAT(filter(used), Succeeds());
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(changesSince(before),
                ElementsAre(Pair(entry("contentfiles/log/2/a.txt"), EndsWith(": " + content))));
    EXPECT_THAT(recordsSince(before.records),
                ElementsAre(stamp(), StoreRecord{kContentsKey, record}));
    EXPECT_THAT(namesIn(tmpDirectory()), IsEmpty());
  }
};

TEST_F(FileFilterTest, ThatRemovesLinesReplacesTheStoredFile) {
  addFile(1, "/home/kept at another level\n");
  addFile(kLevel, "one\n/home/two\nthree /home/x\nfour\n");
  expectReplaced(dropLinesWithHome, "one\nfour\n");
}

TEST_F(FileFilterTest, ThatMakesTheFileLargerReplacesIt) {
  addFile(kLevel, "ab");
  expectReplaced(
      [](std::ifstream& input, std::ofstream& output) {
        copyAll(input, output);
        output << std::string(1000, 'c');
        return true;
      },
      "ab" + std::string(1000, 'c'));
}

TEST_F(FileFilterTest, ThatWritesNothingEmptiesTheFile) {
  addFile(kLevel, "content");
  expectReplaced([](std::ifstream&, std::ofstream&) { return true; }, "");
  EXPECT_EQ(fs::file_size(storedFile()), 0U);
}

TEST_F(FileFilterTest, ThatCopiesChangesNoByte) {
  std::string large(5U << 20U, '\0');
  for (std::size_t i = 0; i < large.size(); ++i)
    large[i] = static_cast<char>(i * 7 + i / 253);
  for (const std::string& content : {std::string(), std::string("\r\n\0\x1a\xff", 5), large}) {
    addFile(kLevel, content);
    const auto record = stored(kContentsKey);
    EXPECT_THAT(filter(copyAll), Succeeds());
    EXPECT_TRUE(readFile(storedFile()) == content);
    EXPECT_EQ(stored(kContentsKey), record);
    ASSERT_THAT(report().removeFileVariation(kProperty, kLevel), Succeeds());
  }
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FileFilterTest, WorksOnAFileThatIsRecordedElsewhere) {
  fs::create_directories(dir() / "contentfiles/other");
  writeFile(dir() / "contentfiles/other/x", "/home/\nkept\n");
  const auto recorded = fileVariation("contentfiles/other/x", kLevel);
  storeVariations({recorded});
  EXPECT_THAT(filter(dropLinesWithHome), Succeeds());
  EXPECT_EQ(readFile(dir() / "contentfiles/other/x"), "kept\n");
  EXPECT_THAT(property().variations, ElementsAre(recorded));
}

TEST_F(FileFilterTest, IsAllowedAtEveryStage) {
  addFile(kLevel, "/home/\nkept\n");
  for (const char* flag : {"report_creation_complete", "user_interaction_complete",
                           "data_collection_complete", "data_policy_applied", "upload_complete"}) {
    store(flag, "1");
  }
  expectReplaced(dropLinesWithHome, "kept\n");
}

TEST_F(FileFilterTest, IsCalledOnceOnTheCallersThread) {
  addFile(kLevel, "content");
  std::vector<std::thread::id> calls;
  EXPECT_THAT(filter([&](std::ifstream&, std::ofstream&) {
                calls.push_back(std::this_thread::get_id());
                return true;
              }),
              Succeeds());
  EXPECT_THAT(calls, ElementsAre(std::this_thread::get_id()));
}

TEST_F(FileFilterTest, ReadsFromTheBeginningAndWritesToAnEmptyScratchFile) {
  addFile(kLevel, "content");
  EXPECT_THAT(filter([&](std::ifstream& input, std::ofstream& output) {
                EXPECT_TRUE(input.is_open() && input.good());
                EXPECT_EQ(input.tellg(), 0);
                EXPECT_TRUE(output.is_open() && output.good());
                EXPECT_EQ(output.tellp(), 0);
                const auto names = namesIn(tmpDirectory());
                EXPECT_EQ(names.size(), 1U);
                EXPECT_EQ(fs::file_size(tmpDirectory() / names.at(0)), 0U);
                output << "instead" << std::flush;
                EXPECT_EQ(readFile(tmpDirectory() / names.at(0)), "instead");
                EXPECT_EQ(readFile(storedFile()), "content");
                return true;
              }),
              Succeeds());
  EXPECT_EQ(readFile(storedFile()), "instead");
}

TEST_F(FileFilterTest, MayReadItsOutputAgainAndCannotWriteToItsInput) {
  addFile(kLevel, "content");
  EXPECT_THAT(filter([&](std::ifstream& input, std::ofstream& output) {
                output << "abcdef";
                std::istream again(output.rdbuf());
                again.seekg(2);
                std::string word;
                again >> word;
                EXPECT_EQ(word, "cdef");
                output.clear();
                output.seekp(0);
                output << "AB";
                std::ostream back(input.rdbuf());
                EXPECT_FALSE(back << "x" << std::flush);
                return true;
              }),
              Succeeds());
  EXPECT_EQ(readFile(storedFile()), "ABcdef");
}

// Whatever the process's mask is, nobody may read more than before, nor less.
TEST_F(FileFilterTest, LeavesTheModeOfTheStoredFile) {
  const mode_t mask = ::umask(022);
  for (const fs::perms mode : {fs::perms(0600), fs::perms(0640), fs::perms(0666)}) {
    addFile(kLevel, "content");
    fs::permissions(storedFile(), mode);
    EXPECT_THAT(filter([&](std::ifstream& input, std::ofstream& output) {
                  const fs::path scratch = tmpDirectory() / namesIn(tmpDirectory()).at(0);
                  EXPECT_EQ(fs::status(scratch).permissions(), mode);
                  return copyAll(input, output);
                }),
                Succeeds());
    EXPECT_EQ(fs::status(storedFile()).permissions(), mode);
    EXPECT_EQ(readFile(storedFile()), "content");
    ASSERT_THAT(report().removeFileVariation(kProperty, kLevel), Succeeds());
  }
  ::umask(mask);
}

TEST_F(FileFilterTest, MayCloseItsStreams) {
  addFile(kLevel, "content");
  EXPECT_THAT(filter([](std::ifstream& input, std::ofstream& output) {
                copyAll(input, output);
                output << '!';
                output.close();
                input.close();
                return true;
              }),
              Succeeds());
  EXPECT_EQ(readFile(storedFile()), "content!");
}

TEST_F(FileFilterTest, MayOpenTheReportItself) {
  const fs::path path = addFile(kLevel, "content");
  unlock();
  const auto filtered = report().filterFileVariationToTemporaryFile(
      kProperty, kLevel, [&](std::ifstream& input, std::ofstream& output) {
        const auto other = open();
        EXPECT_THAT(other->getReportFileVariationPath(kProperty, kLevel), Holds(path));
        EXPECT_THAT(other->acquireWriteLock(false), Succeeds());
        EXPECT_THAT(other->setDescription("from the filter"), Succeeds());
        return copyAll(input, output);
      });
  ASSERT_TRUE(filtered.has_value());
  EXPECT_EQ(readFile(filtered.value()->getPath().value()), "content");
  EXPECT_EQ(report().getDescription(), "from the filter");
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FileFilterTest, MayChangeTheReportThatItFilters) {
  addFile(kLevel, "content");
  EXPECT_THAT(filter([&](std::ifstream& input, std::ofstream& output) {
                EXPECT_THAT(report().createReportStringProperty("made by the filter", {}),
                            Succeeds());
                EXPECT_THAT(report().removeFileVariation(kProperty, 1).has_value(), false);
                return copyAll(input, output);
              }),
              Succeeds());
  EXPECT_TRUE(report().hasReportStringProperty("made by the filter"));
  EXPECT_EQ(readFile(storedFile()), "content");
}

TEST_F(FileFilterTest, IntoAScratchFileLeavesTheStoredFileAndNeedsNoLock) {
  addFile(kLevel, "one\n/home/two\n");
  unlock();
  const DiskState before = now();
  auto filtered = report().filterFileVariationToTemporaryFile(kProperty, kLevel, dropLinesWithHome);
  ASSERT_TRUE(filtered.has_value());
  const std::shared_ptr<ReportTemporaryFile> file = filtered.value();
  filtered = DiagnosticError(noCode(), "let go of");
  ASSERT_TRUE(file->isValid());
  EXPECT_EQ(file.use_count(), 1) << "the caller alone owns it";
  const fs::path path = file->getPath().value();
  EXPECT_EQ(path.parent_path(), tmpDirectory());
  EXPECT_THAT(changesSince(before),
              ElementsAre(Key(entry("tmp")),
                          Pair(entry("tmp/" + path.filename().string()), EndsWith(": one\n"))));
  EXPECT_THAT(recordsSince(before.records), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());
  file->cleanup();
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(FileFilterTest, IntoAScratchFileCanBeStoredAsAnotherVariation) {
  addFile(kLevel, "one\n/home/two\n");
  const auto filtered =
      report().filterFileVariationToTemporaryFile(kProperty, kLevel, dropLinesWithHome);
  ASSERT_TRUE(filtered.has_value());
  EXPECT_THAT(
      report().moveReportTemporaryFileToFileProperty(kProperty, 0, filtered.value(), "", false),
      Succeeds());
  EXPECT_EQ(readFile(storedFile(0, kProperty)), "one\n");
  EXPECT_EQ(readFile(storedFile()), "one\n/home/two\n");
}

TEST_F(FileFilterTest, LeavesNoDescriptorOpen) {
  addFile(kLevel, "content");
  const std::vector<int> before = descriptorsBelow(directory_.path());
  EXPECT_THAT(filter(copyAll), Succeeds());
  const auto filtered = report().filterFileVariationToTemporaryFile(kProperty, kLevel, copyAll);
  EXPECT_TRUE(filtered.has_value());
  EXPECT_EQ(descriptorsBelow(directory_.path()), before);
}

}  // namespace
}  // namespace KELP::Diagnostic
