// Names of file properties that mean something to the file system. Whatever they are, removing the
// property removes what the name leads to within the report, or is refused.

#include "unit/contents/properties/typefamilies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using namespace std::string_literals;
namespace fs = std::filesystem;

Property fileProperty(const std::string& name) {
  return {name, Type::FILE, "text/plain", {}, {}};
}

class FilePropertyNames : public ContentsTest {
 protected:
  FilePropertyNames() { plantFile("log/2/a.txt"); }

  /** Makes a file property of that name, which is no matter. */
  void make(const std::string& name) {
    expectStored({fileProperty(name)},
                 [&](Report& r) { return r.createReportFileProperty(name, "text/plain", {}); });
  }

  /** Makes and removes a property, and expects exactly @p gone to be gone. */
  void expectRemoves(const std::string& name, const std::vector<std::string>& gone) {
    SCOPED_TRACE(name);
    make(name);
    const Snapshot before = snapshot();
    expectStoredFirst({}, [&](Report& r) { return r.removeReportFileProperty(name); });
    expectGone(before, gone);
    storeContentsText(std::nullopt);
  }

  /** Expects that a property of that name can be made and found, but not removed. */
  void expectCannotBeRemoved(const std::string& name, const std::string& candidate) {
    SCOPED_TRACE(name);
    make(name);
    expectRefused(
        errorLines({"Path: " + candidate + ", is not within report directory: " + dir().string(),
                    kNoFilePathLine}),
        kPathRefusal, [&](Report& r) { return r.removeReportFileProperty(name); });
    EXPECT_TRUE(report().hasReportFileProperty(name));
    storeContentsText(std::nullopt);
  }
  std::string below(const std::string& name) const { return contentFiles().string() + '/' + name; }

  /** Expects that removing the property, whether it succeeds or not, leaves all around the report.
   */
  void expectStaysInside(const std::string& name) {
    SCOPED_TRACE(testing::PrintToString(name));
    storeContents({fileProperty(name)});
    const Snapshot before = snapshot();
    static_cast<void>(report().removeReportContentProperty(name));
    expectSameSurroundings(before);
  }

  const std::vector<std::string> log_directory_{"contentfiles/log", "contentfiles/log/2",
                                                "contentfiles/log/2/a.txt"};
  const std::vector<std::string> all_files_{"contentfiles", "contentfiles/log",
                                            "contentfiles/log/2", "contentfiles/log/2/a.txt"};
};

TEST_F(FilePropertyNames, EmptyNameOwnsAllContentFiles) {
  expectRemoves("", all_files_);
}

TEST_F(FilePropertyNames, NameMayLeadToAnythingWithinTheReport) {
  fs::create_directory(dir() / "tmp");
  writeFile(dir() / "tmp/scratch", "scratch");
  expectRemoves("../tmp", {"tmp", "tmp/scratch"});
  expectRemoves("../contentfiles/log/../log", log_directory_);
  expectRemoves("../lock", {"lock"});
  EXPECT_TRUE(fs::exists(metadataFile()));
}

// The system goes no way back from what is missing, or is no directory, whatever the text says.
TEST_F(FilePropertyNames, NameThatTheSystemDoesNotFindLeadsToNothing) {
  expectRemoves("../contentfiles/missing/../log", {});
  expectRemoves("missing/../log", {});
  expectRemoves("log/2/a.txt/../../2", {});
  expectRemoves("log/missing/../../log/2", {});
  EXPECT_TRUE(fs::exists(contentFiles() / "log/2/a.txt"));
}

TEST_F(FilePropertyNames, NameMayLeaveTheReportAndReturn) {
  expectRemoves("../../"s + kIdText + "/lock", {"lock"});
}

TEST_F(FilePropertyNames, NameMayBeThePathOfTheMetadata) {
  make("../metadata.db");
  const Snapshot before = snapshot();
  EXPECT_THAT(report().removeReportFileProperty("../metadata.db"), Succeeds());
  expectSameSurroundings(before);
  EXPECT_FALSE(fs::exists(metadataFile()));
  EXPECT_TRUE(fs::exists(lockFile()));
}

TEST_F(FilePropertyNames, AbsoluteNameWithinTheReportIsAPath) {
  expectRemoves(contentFiles() / "log", log_directory_);
  expectRemoves(lockFile(), {"lock"});
}

TEST_F(FilePropertyNames, NameOfSeveralPartsIsAPath) {
  expectRemoves("log/2/a.txt", {"contentfiles/log/2/a.txt"});
  expectRemoves("log/2", {"contentfiles/log/2"});
}

TEST_F(FilePropertyNames, TrailingSeparatorsMeanTheSameDirectory) {
  expectRemoves("log/", log_directory_);
  plantFile("log/2/a.txt");
  expectRemoves("log//", log_directory_);
  plantFile("log/2/a.txt");
  expectRemoves("../lock/", {});
}

TEST_F(FilePropertyNames, NamesThatLeadOutOrEndInDotsCannotBeRemoved) {
  for (const char* name : {"..", ".", "../..", "../../x", "../../../x", "log/..", "../.", "./.."}) {
    expectCannotBeRemoved(name, below(name));
  }
  expectCannotBeRemoved("log/.", below("log/."));
  expectCannotBeRemoved("../../"s + kOtherIdText, below("../../"s + kOtherIdText));
  expectCannotBeRemoved("../../"s + kIdText, below("../../"s + kIdText));
}

TEST_F(FilePropertyNames, AbsoluteNamesElsewhereCannotBeRemoved) {
  for (const fs::path& path : {outside(), outside() / "decoy", root_, root_ / "x", dir(),
                               root_ / kOtherIdText / "lock", fs::path("/")}) {
    expectCannotBeRemoved(path, path);
  }
  expectCannotBeRemoved(dir().string() + "/", dir().string() + "/");
}

TEST_F(FilePropertyNames, AnyOtherCharactersAreOnlyCharacters) {
  for (const std::string& name : {"%s%n%d"s, "two\nlines"s, " "s, "-rf"s, "*"s, "~"s, "$HOME"s,
                                  "..."s, "a\\..\\b"s, "ü"s, "\x7f\x01"s, std::string(255, 'x')}) {
    plantFile(name + "/2/a.txt");
    const std::string top = "contentfiles/" + name;
    expectRemoves(name, {top, top + "/2", top + "/2/a.txt"});
  }
}

TEST_F(FilePropertyNames, NamesThatAreTooLongForAFileAreNoMatter) {
  for (const std::size_t length : {256U, 4096U}) {
    make(std::string(length, 'x'));
    expectStored({},
                 [&](Report& r) { return r.removeReportFileProperty(std::string(length, 'x')); });
    storeContentsText(std::nullopt);
  }
}

TEST_F(FilePropertyNames, PathsThroughNamesThatAreTooLongCannotBeRemoved) {
  const std::string name = std::string(256, 'x') + "/y";
  make(name);
  const std::string parent = below(std::string(256, 'x'));
  expectRefused(
      errorLines({"Error File name too long while attempting to resolve path: " + parent,
                  "Path: " + parent + "/y, is not within report directory: " + dir().string(),
                  kNoFilePathLine}),
      kPathRefusal, [&](Report& r) { return r.removeReportFileProperty(name); });
}

TEST_F(FilePropertyNames, RefusalsComeBeforeTheLock) {
  storeContents({fileProperty("..")});
  unlock();
  for (const auto& remove :
       {&Report::removeReportFileProperty, &Report::removeReportContentProperty}) {
    expectRefused(
        errorLines({"Path: " + below("..") + ", is not within report directory: " + dir().string(),
                    kNoFilePathLine}),
        kPathRefusal, [&](Report& r) { return (r.*remove)(".."); });
  }
}

TEST_F(FilePropertyNames, OfOtherTypesAreNoPaths) {
  for (const TypeFamily& family : typeFamilies()) {
    if (family.type == Type::FILE) {
      continue;
    }
    for (const char* name : {"", "..", "../lock", "../../x", "log", "/"}) {
      storeContents({family.property(name, {})});
      expectStored({}, [&](Report& r) { return family.removeProperty(r, name); });
    }
  }
}

TEST_F(FilePropertyNames, LinkInTheDirectorysPlaceIsRemovedAndNotWhatItNames) {
  fs::create_directory_symlink(outside(), contentFiles() / "link");
  expectRemoves("link", {"contentfiles/link"});
}

TEST_F(FilePropertyNames, LinkBelowTheDirectoryIsRemovedAndNotWhatItNames) {
  fs::create_directory_symlink(outside(), contentFiles() / "log/2/link");
  std::vector<std::string> gone = log_directory_;
  gone.emplace_back("contentfiles/log/2/link");
  expectRemoves("log", gone);
}

TEST_F(FilePropertyNames, PathThroughALinkThatLeadsOutCannotBeRemoved) {
  fs::create_directory_symlink(outside(), contentFiles() / "link");
  expectCannotBeRemoved("link/decoy", below("link/decoy"));
}

TEST_F(FilePropertyNames, ContentFilesThatAreALinkElsewhereCannotBeRemoved) {
  fs::remove_all(contentFiles());
  fs::create_directory_symlink(outside(), contentFiles());
  expectCannotBeRemoved("decoy", below("decoy"));
}

TEST_F(FilePropertyNames, TrailingSeparatorDoesNotReachThroughALink) {
  fs::create_directory_symlink(outside(), contentFiles() / "link");
  expectStaysInside("link/");
}

TEST_F(FilePropertyNames, EmptyNameDoesNotReachThroughALink) {
  fs::remove_all(contentFiles());
  fs::create_directory_symlink(outside(), contentFiles());
  expectStaysInside("");
}

// System calls would see the names cut at the NUL, and so remove something else than what was
// checked. The log too shows them cut.
TEST_F(FilePropertyNames, NamesWithANulCannotBeRemoved) {
  expectCannotBeRemoved("../..\0"s, below("../.."));
  expectCannotBeRemoved("..\0"s, below(".."));
  expectCannotBeRemoved("../../x\0"s, below("../../x"));
  expectCannotBeRemoved("log\0x"s, below("log"));
  expectCannotBeRemoved("log\0/../../.."s, below("log"));
  expectCannotBeRemoved("\0"s, below(""));
  expectCannotBeRemoved(dir().string() + "/..\0"s, dir().string() + "/..");
}

}  // namespace
}  // namespace KELP::Diagnostic
