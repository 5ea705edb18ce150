// The archive as such: its members, its names, its bytes.

#include "tools/watching/exporttest.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <map>

namespace KELP::Test {
namespace {

using testing::ElementsAre;
using testing::Key;
using testing::SizeIs;

namespace fs = std::filesystem;

std::string checksumOf(const fs::path& file) {
  return shell("sha256sum < \"$0\"", {file.native()}).substr(0, 64);
}

class ExportArchiveTest : public ExportTest, public testing::WithParamInterface<const char*> {
 protected:
  /** The archive's bytes, without compression, before its manifest, which has the time in it. */
  [[nodiscard]] std::string bytesBeforeManifest() const {
    const std::string name = GetParam();
    const fs::path plain = work_ / "plain";
    const std::string reader = name.ends_with("zst")   ? "zstd -dcq"
                               : name.ends_with("zip") ? "cat"
                                                       : "gzip -dc";
    EXPECT_EQ(shell(reader + R"( < "$0" > "$1")", {pathOf(name).native(), plain.native()}), "");
    const std::string bytes = readFile(plain);
    const std::size_t end = bytes.find("manifest.json");
    EXPECT_NE(end, std::string::npos);
    // A zip member's name stands behind its header, with times and sizes: none of that is wanted.
    return bytes.substr(0, name.ends_with("zip") ? end - 30 : end);
  }
};

TEST_P(ExportArchiveTest, HasAFolderForEachReportAndAManifest) {
  const std::string other = "22222222-2222-4222-8222-222222222222";
  createUsual();
  createUsual(other);
  const ToolResult result = exportTo(GetParam(), {"2222", kId});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(outputs(), ElementsAre(GetParam()));

  const std::string id = kId;
  EXPECT_THAT(unpack(GetParam()).members,
              ElementsAre(Key(id + "/files/log/10/short.txt"), Key(id + "/report.json"),
                          Key(other + "/files/log/10/short.txt"), Key(other + "/report.json"),
                          Key("manifest.json")));
}

TEST_P(ExportArchiveTest, TheManifestHasSizesAndChecksums) {
  createUsual();
  ASSERT_EQ(exportTo(GetParam()).status, 0);
  const Unpacked unpacked = unpack(GetParam());
  const Json::Value& members = unpacked.manifest["reports"][0]["members"];
  ASSERT_THAT(members, SizeIs(2));
  for (const Json::Value& member : members) {
    const fs::path file = unpacked.members.at(member["name"].asString());
    EXPECT_EQ(member["size"].asUInt64(), fs::file_size(file));
    EXPECT_EQ(member["sha256"], checksumOf(file));
  }
}

TEST_P(ExportArchiveTest, MembersHaveTheTimeOfTheReport) {
  createUsual();
  repository_.writeKey(kId, "modified", "1234567890");
  ASSERT_EQ(exportTo(GetParam()).status, 0);
  const Unpacked unpacked = unpack(GetParam());
  for (const char* const name : {"/report.json", "/files/log/10/short.txt"}) {
    struct stat status {};
    ASSERT_EQ(::stat(unpacked.members.at(kId + std::string(name)).c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec, 1234567890) << name;
    EXPECT_EQ(status.st_mode & 07777U, 0644U) << name;
  }
}

TEST_P(ExportArchiveTest, TheSameReportsGiveTheSameBytesAnywhere) {
  createUsual();
  {
    const auto report = repository_.create("22222222-2222-4222-8222-222222222222");
    attach(*report, "größe", 10, "日本.txt", "text");
  }
  ToolSetting here;
  ToolSetting there;
  there.environment = {{"LC_ALL", "C"}, {"TZ", "XYZ-5:30"}};
  ASSERT_EQ(exportTo(GetParam(), {"1111", "2222"}, here).status, 0);
  const std::string first = bytesBeforeManifest();
  ASSERT_EQ(exportTo(GetParam(), {"2222", "1111", "1111", "--force"}, there).status, 0);
  EXPECT_TRUE(bytesBeforeManifest() == first);
  EXPECT_THAT(
      unpack(GetParam()).members,
      testing::Contains(Key("22222222-2222-4222-8222-222222222222/files/größe/10/日本.txt")));
}

TEST_P(ExportArchiveTest, NamesCannotHarmWhoUnpacksThem) {
  const std::string longest(255, '\x01');
  // NOLINTBEGIN(misc-misleading-bidirectional): that is among the cases.
  const std::map<std::string, std::string> names{{"a\033[31m\nb", "a%1B[31m%0Ab"},
                                                 {"back\\slash", "back%5Cslash"},
                                                 {"-dash", "-dash"},
                                                 {"100%", "100%25"},
                                                 {"\xe2\x80\xaegpj", "%E2%80%AEgpj"},
                                                 {".hidden", ".hidden"},
                                                 {"two words", "two words"}};
  // NOLINTEND(misc-misleading-bidirectional)
  {
    const auto report = repository_.create(kId);
    for (const auto& [name, safe] : names) {
      attach(*report, "p" + name, 5, name, "content of " + safe);
    }
    attach(*report, "..", 5, "..x", "up");
    attach(*report, "../tmp/x", 5, "x", "further up");
    attach(*report, "long", 5, longest, "long");
  }
  ASSERT_EQ(exportTo(GetParam()).status, 0);
  const Unpacked unpacked = unpack(GetParam());
  const std::string folder = std::string(kId) + "/files/";
  for (const auto& [name, safe] : names) {
    EXPECT_EQ(unpacked.content(folder + "p" + safe + "/5/" + safe), "content of " + safe);
  }
  EXPECT_EQ(unpacked.content(folder + "%2E%2E/5/..x"), "up");
  EXPECT_EQ(unpacked.content(folder + "..%2Ftmp%2Fx/5/x"), "further up");
  EXPECT_THAT(unpacked.members, SizeIs(names.size() + 5));

  // The manifest has the names as they were.
  std::map<std::string, Json::Value> described;
  for (const Json::Value& member : unpacked.manifest["reports"][0]["members"]) {
    described[member["name"].asString()] = member;
  }
  const Json::Value& escape = described[folder + "pa%1B[31m%0Ab/5/a%1B[31m%0Ab"];
  EXPECT_EQ(escape["property"], "pa\033[31m\nb");
  EXPECT_EQ(escape["file"], "a\033[31m\nb");
  EXPECT_EQ(escape["level"], 5);
}

class ExportMuchTest : public ExportArchiveTest {};

TEST_P(ExportMuchTest, HoldsALargeFile) {
  constexpr std::size_t kSize = 64UL << 20U;
  {
    const auto report = repository_.create(kId);
    attach(*report, "dump", 5, "dump.bin", "");
  }
  const fs::path stored = repository_.root() / kId / "contentfiles/dump/5/dump.bin";
  ASSERT_EQ(shell(R"(seq 10000000 | head -c "$1" > "$0" || true)",
                  {stored.native(), std::to_string(kSize)}),
            "");
  ASSERT_EQ(fs::file_size(stored), kSize);
  ASSERT_EQ(exportTo(GetParam()).status, 0);
  const Unpacked unpacked = unpack(GetParam());
  const fs::path member = unpacked.members.at(std::string(kId) + "/files/dump/5/dump.bin");
  const std::string checksum = checksumOf(stored);
  EXPECT_EQ(checksumOf(member), checksum);
  EXPECT_EQ(unpacked.manifest["reports"][0]["members"][1]["sha256"], checksum);
}

TEST_P(ExportMuchTest, HoldsManyReports) {
  const std::vector<std::string> ids = repository_.createMany(300);
  ASSERT_EQ(exportTo(GetParam(), ids).status, 0);
  const Unpacked unpacked = unpack(GetParam());
  EXPECT_THAT(unpacked.manifest["reports"], SizeIs(300));
  for (const std::string& id : ids) {
    EXPECT_EQ(unpacked.json(id + "/report.json")["report"]["id"], id);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, ExportArchiveTest,
                         testing::Values("a.tar.zst", "a.tar.gz", "a.tgz", "a.zip"));
INSTANTIATE_TEST_SUITE_P(Formats, ExportMuchTest, testing::Values("a.tar.zst", "a.zip"));

TEST_F(ExportTest, CompressedWithGzipItHasNoTime) {
  createUsual();
  ASSERT_EQ(exportTo("a.tar.gz").status, 0);
  EXPECT_EQ(readFile(pathOf("a.tar.gz")).substr(4, 4), std::string(4, '\0'));
}

}  // namespace
}  // namespace KELP::Test
