#include "tools/changing/changingtest.h"

#include <sys/stat.h>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

class AttachTest : public ChangingTest {
 protected:
  AttachTest() {
    const auto report = locked();
    EXPECT_TRUE(report->createReportFileProperty("log", "text/plain", {}));
    EXPECT_TRUE(report->createReportStringProperty("text", {}));
    writeFile(source_, "content");
  }

  [[nodiscard]] fs::path stored(const std::string& name, int level) const {
    return report()->getReportFileVariationPath(name, level).value();
  }

  fs::path source_ = files_ / "source";
};

TEST_F(AttachTest, CopiesTheFile) {
  perform({"attach", id_, "log", "10", source_});
  EXPECT_EQ(stored("log", 10), directory() / "contentfiles/log/10/log");
  EXPECT_EQ(readFile(stored("log", 10)), "content");
  EXPECT_EQ(readFile(source_), "content");
}

TEST_F(AttachTest, FindsTheFileFromTheWorkingDirectory) {
  ToolSetting setting;
  setting.directory = files_.path();
  perform({"attach", id_, "log", "0", "source"}, setting);
  EXPECT_EQ(readFile(stored("log", 0)), "content");
}

TEST_F(AttachTest, GivesTheStoredFileAName) {
  int level = 0;
  for (const std::string name : {"a b.log", "\033[31m\n", "-n", "✓", "[x]"}) {
    perform({"attach", id_, "log", std::to_string(level), source_, "--name", name});
    EXPECT_EQ(stored("log", level),
              directory() / "contentfiles/log" / std::to_string(level) / name);
    EXPECT_EQ(readFile(stored("log", level)), "content");
    ++level;
  }
}

TEST_F(AttachTest, ReplacesAFileOnlyWhenAsked) {
  perform({"attach", id_, "log", "0", source_, "--name", "kept"});
  writeFile(source_, "newer");
  refuse({"attach", id_, "log", "0", source_}, 1,
         "File already exists and overwrite is not allowed");
  perform({"attach", id_, "log", "0", source_, "--overwrite"});
  EXPECT_EQ(readFile(stored("log", 0)), "newer");
  EXPECT_EQ(stored("log", 0).filename(), "kept");
}

TEST_F(AttachTest, SaysThatAReplacedFileKeepsItsName) {
  perform({"attach", id_, "log", "0", source_, "--name", "ke\tpt"});
  const ToolResult result =
      run({"attach", id_, "log", "0", source_, "--name", "other", "--overwrite"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "kelp-diagnostics: the file keeps its name \"ke\\tpt\"\n");
  EXPECT_EQ(stored("log", 0).filename(), "ke\tpt");
}

TEST_F(AttachTest, CreatesTheProperty) {
  perform({"attach", id_, "new", "0", source_, "--create", "--media-type", "a/b"});
  const auto property = report()->getReportFileProperty("new");
  ASSERT_TRUE(property);
  EXPECT_EQ(property->media_type, "a/b");
  EXPECT_EQ(readFile(stored("new", 0)), "content");
  perform({"attach", id_, "new", "1", source_, "--create", "--media-type", "c/d"});
  EXPECT_EQ(report()->getReportFileProperty("new")->media_type, "a/b");
}

TEST_F(AttachTest, CreatesNoPropertyOnceDataIsCollected) {
  completeCollection();
  refuse({"attach", id_, "new", "0", source_, "--create"}, 1,
         "Report status does not allow creation of new content properties");
  perform({"attach", id_, "log", "0", source_});
}

TEST_F(AttachTest, LeavesNoPropertyOfAFileThatWasNotCopied) {
  const std::string name(300, 'x');
  const ToolResult result = run({"attach", id_, "new", "0", source_, "--create", "--name", name});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, testing::StartsWith("kelp-diagnostics: "));
  EXPECT_FALSE(report()->hasReportContentProperty("new"));
}

TEST_F(AttachTest, RefusesNamesThatLeadToAnotherPlace) {
  refuse({"attach", id_, "log", "0", source_, "--name", ""}, 2, "--name must not be empty");
  refuse({"property", "add", id_, "", "file"}, 2,
         "the name of a property of files \"\" cannot be that of a file");
  for (const std::string name :
       {".", "..", "/", "a/", "/a", "../x", "../../../metadata.db", "../../../lock"}) {
    refuse({"attach", id_, "log", "0", source_, "--name", name}, 2,
           "the name of the file \"" + name + "\" cannot be that of a file");
    refuse({"attach", id_, name, "0", source_, "--create"}, 2,
           "the name of a property of files \"" + name + "\" cannot be that of a file");
    refuse({"property", "add", id_, name, "file"}, 2,
           "the name of a property of files \"" + name + "\" cannot be that of a file");
  }
}

/** The library takes such names: others may have made properties of them. */
TEST_F(AttachTest, LeavesPropertiesAloneWhoseFilesAreSomewhereElse) {
  for (const std::string name : {"", "log/", "log/0", "../metadata.db"}) {
    std::string id;
    {
      const auto report = repository_.create();
      id = report->getId().toString();
      ASSERT_TRUE(report->createReportFileProperty("log", "", {}));
      ASSERT_TRUE(report->copyFileToFileProperty("log", 0, source_, "", false));
      ASSERT_TRUE(report->createReportFileProperty(name, "", {}));
    }
    const std::string complaint =
        "the name of the property \"" + name + "\" leads out of the directory of its files";
    refuse({"attach", id, name, "0", source_}, 5, complaint);
    refuse({"property", "remove", id, name}, 5, complaint);
    refuse({"variation", "remove", id, name, "0"}, 5, complaint);
    refuse({"apply-policy", id}, 5, complaint);
  }
}

TEST_F(AttachTest, AddsNothingToAListThatCannotBeRead) {
  repository_.writeKey(id_, "report_contents", "[{\"no\": \"list\"");
  refuse({"attach", id_, "new", "0", source_, "--create"}, 5, "the report " + id_ + " is damaged");
  refuse({"property", "add", id_, "new", "string"}, 5, "the report " + id_ + " is damaged");
}

TEST_F(AttachTest, RefusesWhatHoldsNoFiles) {
  refuse({"attach", id_, "text", "0", source_}, 2,
         "the property \"text\" holds no files; its type is string");
  refuse({"attach", id_, "text", "0", source_, "--create"}, 2,
         "the property \"text\" holds no files; its type is string");
  refuse({"attach", id_, "none", "0", source_}, 3, "there is no property \"none\"");
}

TEST_F(AttachTest, RefusesWhatIsNoFile) {
  const fs::path pipe = files_ / "pi\npe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const std::string escaped = (files_ / "pi\\npe").native();
  refuse({"attach", id_, "log", "0", pipe}, 1, "\"" + escaped + "\" is not a regular file");
  refuse({"attach", id_, "log", "0", files_.path()}, 1,
         "\"" + files_.path().native() + "\" is not a regular file");
  refuse({"attach", id_, "new", "0", files_ / "none", "--create"}, 1,
         "cannot read \"" + (files_ / "none").native() + "\": No such file or directory");
}

TEST_F(AttachTest, RefusesTextsThatCannotBeStored) {
  refuse({"attach", id_, "log", "0", source_, "--name", "\xff"}, 2,
         "the name of the file is not UTF-8, or has a NUL in it");
  refuse({"attach", id_, "new", "0", source_, "--create", "--media-type", "\xff"}, 2,
         "the media type is not UTF-8, or has a NUL in it");
  refuse({"attach", id_, "log", "ten", source_}, 2,
         "\"ten\" is not an integer from -2147483648 to 2147483647");
}

}  // namespace
}  // namespace KELP::Test
