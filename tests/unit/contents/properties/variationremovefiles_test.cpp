// What becomes of the file when a file variation is removed, by whatever path its record names it.

#include "unit/contents/properties/typefamilies.h"
#include "unit/diagnostic/limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
namespace fs = std::filesystem;

/** A way to remove the variation of level 2 of the property "log". */
using Removal = Report::Result (*)(Report&);

class FileVariationRemoval : public ContentsTest, public testing::WithParamInterface<Removal> {
 protected:
  FileVariationRemoval() {
    plantFile("log/2/a.txt");
    plantFile("log/3/b.txt");
    plantFile("other/2/a.txt");
  }

  /** The property "log" with a file at each path, the first at level 2. */
  static Property log(const std::vector<std::string>& paths) {
    Property property = typeFamilies().front().property("log", {});
    int level = 2;
    for (const std::string& path : paths) {
      property.variations.push_back(
          variationWith<std::string>(level++, &Variation::relative_path, path));
    }
    return property;
  }

  /** Expects the removal to succeed, and exactly these entries of the report to be gone. */
  void expectRemoved(const std::string& path, const std::vector<std::string>& gone) {
    storeContents({log({path, "contentfiles/log/3/b.txt"})});
    const Snapshot before = snapshot();
    Property rest = log({path, "contentfiles/log/3/b.txt"});
    rest.variations.erase(rest.variations.begin());
    expectStoredFirst({rest}, GetParam());
    expectGone(before, gone);
  }

  /** Expects the removal of @p path to be refused, without the lock too, and nothing to change. */
  void expectOutside(const std::string& path) {
    SCOPED_TRACE(path);
    storeContents({log({path})});
    const std::vector<LogLine> lines =
        errorLines({std::string("Path: ") + (dir() / path).c_str() +
                        ", is not within report directory: " + dir().string(),
                    kNoFilePathLine});
    expectRefused(lines, kPathRefusal, GetParam());
  }
};

TEST_P(FileVariationRemoval, TakesTheFileNamedRelativeToTheReport) {
  expectRemoved("contentfiles/log/2/a.txt", {"contentfiles/log/2/a.txt"});
}

TEST_P(FileVariationRemoval, TakesTheFileNamedByItsFullPath) {
  expectRemoved(contentFiles() / "log/2/a.txt", {"contentfiles/log/2/a.txt"});
}

TEST_P(FileVariationRemoval, TakesAFileOfAnotherPropertyThatItsRecordNames) {
  expectRemoved("contentfiles/log/../other/2/a.txt", {"contentfiles/other/2/a.txt"});
}

TEST_P(FileVariationRemoval, TakesADirectoryWithAllThatIsInIt) {
  plantFile("log/2/deep/er");
  expectRemoved("contentfiles/log/2", {"contentfiles/log/2", "contentfiles/log/2/a.txt",
                                       "contentfiles/log/2/deep", "contentfiles/log/2/deep/er"});
}

TEST_P(FileVariationRemoval, DoesNotMindThatTheFileIsGone) {
  expectRemoved("contentfiles/log/2/gone", {});
  expectRemoved("contentfiles/gone/2/a.txt", {});
  expectRemoved("contentfiles/log/2/" + std::string(300, 'x'), {});
}

TEST_P(FileVariationRemoval, TakesALinkAndNotWhatItNames) {
  fs::create_directory_symlink(outside(), contentFiles() / "log/2/link");
  expectRemoved("contentfiles/log/2/link", {"contentfiles/log/2/link"});
}

TEST_P(FileVariationRemoval, RefusesPathsOutsideTheReport) {
  for (const bool locked : {true, false}) {
    if (!locked) {
      unlock();
    }
    for (const char* path : {"../x", "..", ".", "", "contentfiles/..", "contentfiles/../../x",
                             "../7f00c0de-1234-4abc-8def-00112233aabb", "/"}) {
      expectOutside(path);
    }
    expectOutside(outside() / "decoy");
    expectOutside(dir());
    expectOutside(root_);
    expectOutside(dir().string() + "/");
    expectOutside(dir().string() + "0/x");
  }
}

TEST_P(FileVariationRemoval, RefusesPathsThroughLinksThatLeadOut) {
  fs::create_directory_symlink(outside(), contentFiles() / "log/link");
  expectOutside("contentfiles/log/link/decoy");
  expectOutside((contentFiles() / "log/link/decoy").string());
}

TEST_P(FileVariationRemoval, LeavesWhatALinkNamesBeforeATrailingSeparator) {
  for (const std::string end : {"/", "//"}) {
    storeContents({log({"contentfiles/log/link" + end})});
    fs::create_directory_symlink(outside(), contentFiles() / "log/link");
    const Snapshot before = snapshot();
    EXPECT_THAT(GetParam()(report()), Succeeds());
    expectSameSurroundings(before);
    fs::remove(contentFiles() / "log/link");
    writeFile(outside() / "decoy", "beside the root");
  }
}

// System calls would see the paths cut at the NUL. The log shows them so.
TEST_P(FileVariationRemoval, RefusesPathsWithANul) {
  using namespace std::string_literals;
  for (const std::string& path :
       {"..\0"s, "contentfiles/../..\0/x"s, "../x\0"s, "contentfiles/log/2/a.txt\0"s}) {
    expectOutside(path);
  }
}

TEST_P(FileVariationRemoval, RefusesAPathThatCannotBeResolved) {
  const std::string longName(300, 'x');
  storeContents({log({"contentfiles/" + longName + "/a.txt"})});
  const std::string parent = (contentFiles() / longName).string();
  const auto lines =
      errorLines({"Error File name too long while attempting to resolve path: " + parent,
                  "Path: " + parent + "/a.txt, is not within report directory: " + dir().string(),
                  kNoFilePathLine});
  expectRefused(lines, kPathRefusal, GetParam());
}

TEST_P(FileVariationRemoval, FileStaysWhileTheListWithItIsStored) {
  const Contents all{log({"contentfiles/log/2/a.txt"})};
  storeContents(all);
  for (const std::size_t room : {0U, 5U, 60U}) {
    const Snapshot before = snapshot();
    const Result result = [&] {
      const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(stamp()) + room);
      return GetParam()(report());
    }();
    EXPECT_THAT(result, Refuses(kListFailure));
    EXPECT_EQ(log_.take(), errorLines({kListFailure}));
    EXPECT_EQ(contents(), all);
    expectSameFiles(before);
  }
}

INSTANTIATE_TEST_SUITE_P(All, FileVariationRemoval,
                         testing::Values([](Report& r) { return r.removeFileVariation("log", 2); },
                                         [](Report& r) {
                                           return r.removeContentPropertyVariation("log", 2);
                                         }),
                         [](const auto& all) { return all.index == 0 ? "Typed" : "Untyped"; });

}  // namespace
}  // namespace KELP::Diagnostic
