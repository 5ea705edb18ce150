#include "unit/contents/files/filesfixture.h"

#include <diagnostic/metadataproperty.h>

#include <utility>

namespace KELP::Test {

namespace fs = std::filesystem;

FilesTest::FilesTest() : report_(create()) {
  writeFile(decoy(), "decoy");
  fs::create_directory(outside());
  EXPECT_THAT(report_->acquireWriteLock(true), Succeeds());
  EXPECT_THAT(report_->createReportFileProperty(kProperty, "text/plain", {"tag"}), Succeeds());
  store("modified", "1");
}

fs::path FilesTest::makeSource(const std::string& content, const std::string& name) const {
  writeFile(directory_ / name, content);
  return directory_ / name;
}

fs::path FilesTest::variationDirectory(int level) const {
  return dir() / "contentfiles" / kProperty / std::to_string(level);
}

fs::path FilesTest::storedFile(int level, const std::string& name) const {
  return variationDirectory(level) / name;
}

FilesTest::Result FilesTest::copy(const fs::path& source, const std::string& fileName,
                                  bool overwrite) {
  return report_->copyFileToFileProperty(kProperty, kLevel, source, fileName, overwrite);
}

fs::path FilesTest::addFile(int level, const std::string& content, const std::string& fileName,
                            const std::string& property) {
  const fs::path source = makeSource(content, "added");
  EXPECT_THAT(report_->copyFileToFileProperty(property, level, source, fileName, false),
              Succeeds());
  fs::remove(source);
  store("modified", "1");
  const auto variation = report_->getReportContentVariation(property, level);
  return variation ? fs::path(variation->relative_path) : fs::path();
}

FilesTest::Variation FilesTest::fileVariation(const fs::path& path, int level) {
  Variation variation;
  variation.relative_path = path.string();
  variation.sensitivity_level = level;
  return variation;
}

FilesTest::Properties FilesTest::property() const {
  return report_->getReportContentProperty(kProperty).value_or(Properties());
}

void FilesTest::storeContents(const Contents& contents) const {
  store(kContentsKey, Diagnostic::MetadataProperty<Contents>::serialize(contents));
}

void FilesTest::storeVariations(const std::vector<Variation>& variations) const {
  Properties changed = property();
  changed.variations = variations;
  storeContents({changed});
}

std::string FilesTest::entry(const std::string& below) {
  return std::string("reports/") + kIdText + '/' + below;
}

DiskState FilesTest::now() const {
  DiskState state{treeOf(directory_.path()), recordCount()};
  state.tree.erase(entry("metadata.db"));
  return state;
}

TreeChanges FilesTest::changesSince(const DiskState& before) const {
  const Tree after = now().tree;
  TreeChanges changes;
  for (const auto& [name, description] : before.tree) {
    if (!after.contains(name)) changes[name] = "gone";
  }
  for (const auto& [name, description] : after) {
    const auto former = before.tree.find(name);
    if (former == before.tree.end() || former->second != description) changes[name] = description;
  }
  return changes;
}

std::vector<std::string> FilesTest::keysSince(const DiskState& before) const {
  std::vector<std::string> keys;
  for (const StoreRecord& record : recordsSince(before.records)) {
    keys.push_back(record.key);
  }
  return keys;
}

void FilesTest::expectNothingChanged(const DiskState& before) const {
  EXPECT_THAT(changesSince(before), testing::IsEmpty());
  EXPECT_THAT(recordsSince(before.records), testing::IsEmpty());
}

void FilesTest::expectOnlyStamped(const DiskState& before) const {
  EXPECT_THAT(changesSince(before), testing::IsEmpty());
  EXPECT_THAT(recordsSince(before.records), testing::ElementsAre(stamp()));
}

std::vector<LogLine> outsideLines(const fs::path& path, const fs::path& report,
                                  const std::string& line) {
  return errorLines(
      {"Path: " + path.string() + ", is not within report directory: " + report.string(), line});
}

}  // namespace KELP::Test
