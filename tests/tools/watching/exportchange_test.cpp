// What happens to a report, or to the program, while the archive is being written.

#include "support/childprocess.h"
#include "tools/watching/exporttest.h"
#include "tools/watching/watchtest.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>

namespace KELP::Test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

/** A report with a file of zeros that is large enough to take some time. */
class ExportChangeTest : public ExportTest {
 protected:
  static constexpr std::uint64_t kSize = 256UL << 20U;

  ExportChangeTest() {
    createUsual();
    fs::resize_file(stored(), kSize);
  }

  [[nodiscard]] fs::path stored() const {
    return repository_.root() / kId / "contentfiles/log/10/short.txt";
  }

  /** Starts an export and stops it in the middle of the file. */
  void startAndStop(const std::vector<std::string>& more) {
    std::vector<std::string> command = arguments("a.tar.zst", more);
    command.insert(command.begin(),
                   {"/bin/sh", "-c", R"(exec "$0" "$@" 2> ")" + errors() + "\"", toolPath()});
    tool_ = std::make_unique<ChildProcess>(command);
    ASSERT_TRUE(waitUntil([this] { return position() > 0; }));
    tool_->signal(SIGSTOP);
    ASSERT_LT(position(), kSize) << "the file was read before anything could be done";
  }

  int continueToTheEnd() {
    tool_->signal(SIGCONT);
    return tool_->wait();
  }

  [[nodiscard]] std::string errors() const { return work_ / "errors"; }

  void changeReport(const std::string& key, const std::string& value) const {
    repository_.writeKey(kId, key, value);
  }

  std::unique_ptr<ChildProcess> tool_;

 private:
  /** How far the program has read the file; 0 when it has not opened it. */
  [[nodiscard]] std::uint64_t position() const {
    const fs::path process = "/proc/" + std::to_string(tool_->pid());
    std::error_code error;
    for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
         file.increment(error)) {
      std::error_code gone;
      if (fs::read_symlink(file->path(), gone) == stored()) {
        std::ifstream in(process / "fdinfo" / file->path().filename());
        std::string label;
        std::uint64_t position = 0;
        in >> label >> position;
        return position;
      }
    }
    return 0;
  }
};

TEST_F(ExportChangeTest, AFileThatIsCutGivesASoundArchiveThatSaysSo) {
  startAndStop({kId});
  fs::resize_file(stored(), 1);
  EXPECT_EQ(continueToTheEnd(), 0);
  EXPECT_THAT(readFile(errors()), HasSubstr("the file changed while it was read"));
  const Unpacked unpacked = unpack("a.tar.zst");
  const Json::Value& member = unpacked.manifest["reports"][0]["members"][1];
  EXPECT_EQ(member["changed_while_read"], true);
  EXPECT_EQ(member["size"].asUInt64(), kSize);
  const fs::path file = unpacked.members.at(member["name"].asString());
  EXPECT_EQ(fs::file_size(file), kSize);
  EXPECT_EQ(shell("sha256sum < \"$0\"", {file.native()}).substr(0, 64),
            member["sha256"].asString());
}

TEST_F(ExportChangeTest, AFileThatGrowsIsCutToWhatItWas) {
  startAndStop({kId});
  fs::resize_file(stored(), kSize + 4096);
  EXPECT_EQ(continueToTheEnd(), 0);
  const Unpacked unpacked = unpack("a.tar.zst");
  const Json::Value& member = unpacked.manifest["reports"][0]["members"][1];
  EXPECT_EQ(member["changed_while_read"], true);
  EXPECT_EQ(fs::file_size(unpacked.members.at(member["name"].asString())), kSize);
}

TEST_F(ExportChangeTest, AReportThatChangesIsNoted) {
  startAndStop({kId});
  changeReport("description", "changed");
  EXPECT_EQ(continueToTheEnd(), 0);
  EXPECT_THAT(readFile(errors()),
              HasSubstr(std::string("the report ") + kId + " changed while it was read"));
  const Json::Value manifest = unpack("a.tar.zst").manifest;
  EXPECT_EQ(manifest["reports"][0]["changed_while_read"], true);
  EXPECT_EQ(manifest["reports"][0]["members"][1]["changed_while_read"], false);
}

TEST_F(ExportChangeTest, WhenConsentIsTakenBackNothingIsWritten) {
  startAndStop({kId});
  changeReport("current_consent_level", "5");
  EXPECT_EQ(continueToTheEnd(), 4);
  EXPECT_THAT(readFile(errors()), HasSubstr("was lowered while it was read"));
  EXPECT_THAT(outputs(), IsEmpty());
}

class ExportSignalTest : public ExportChangeTest, public testing::WithParamInterface<int> {};

TEST_P(ExportSignalTest, LeavesNothingAndTheOldArchive) {
  writeFile(pathOf("a.tar.zst"), "old");
  startAndStop({kId, "--force"});
  EXPECT_EQ(outputs().size(), 2U);
  tool_->signal(GetParam());
  EXPECT_EQ(continueToTheEnd(), 128 + GetParam());
  EXPECT_EQ(readFile(errors()), "");
  EXPECT_THAT(outputs(), ElementsAre("a.tar.zst"));
  EXPECT_EQ(readFile(pathOf("a.tar.zst")), "old");
}

INSTANTIATE_TEST_SUITE_P(All, ExportSignalTest, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(ExportChangeTest, AnArchiveThatSomebodyElseMadeMeanwhileIsNotReplaced) {
  startAndStop({kId});
  writeFile(pathOf("a.tar.zst"), "theirs");
  EXPECT_EQ(continueToTheEnd(), 1);
  EXPECT_THAT(readFile(errors()), HasSubstr("exists already"));
  EXPECT_THAT(outputs(), ElementsAre("a.tar.zst"));
  EXPECT_EQ(readFile(pathOf("a.tar.zst")), "theirs");
}

}  // namespace
}  // namespace KELP::Test
