#include "unit/contents/properties/contentsfixture.h"

#include <diagnostic/metadataproperty.h>

#include <algorithm>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

const std::string kReportEntry = std::string("reports/") + kIdText;
const std::string kStoreEntry = kReportEntry + "/metadata.db";

bool isStore(const std::string& entry) {
  return entry == kStoreEntry;
}

bool isInReport(const std::string& entry) {
  return entry == kReportEntry || entry.starts_with(kReportEntry + '/');
}

bool isNothing(const std::string&) {
  return false;
}

/** What is different in two trees, but for entries that are left out. */
std::vector<std::string> differences(const Tree& before, const Tree& after,
                                     bool (*leftOut)(const std::string&)) {
  std::vector<std::string> all;
  for (const auto& [entry, description] : before) {
    if (leftOut(entry)) {
      continue;
    }
    const auto now = after.find(entry);
    if (now == after.end()) {
      all.push_back(entry + " is gone");
    } else if (now->second != description) {
      all.push_back(entry + " is now a " + now->second);
    }
  }
  for (const auto& [entry, description] : after) {
    if (!leftOut(entry) && !before.contains(entry)) {
      all.push_back(entry + " is new: a " + description);
    }
  }
  return all;
}

}  // namespace

Property numbered(const std::string& name, const std::vector<int>& levels) {
  Property property{name, Type::INTEGER, "", {}, {}};
  for (const int level : levels) {
    const int position = static_cast<int>(property.variations.size());
    property.variations.push_back(variationWith(level, &Variation::integer, position));
  }
  return property;
}

std::string textOf(const Contents& contents) {
  return Diagnostic::MetadataProperty<Contents>::serialize(contents);
}

ContentsTest::ContentsTest() : report_(create()) {
  EXPECT_NE(create(uuid(kOtherIdText)), nullptr);
  fs::create_directory(outside());
  writeFile(outside() / "decoy", "beside the root");
  for (const char* name : {"x", "lock", "log"}) {
    writeFile(directory_ / name, "beside the root");
    writeFile(root_ / name, "beside the report");
  }
  EXPECT_THAT(report_->acquireWriteLock(true), Succeeds());
  store("modified", "1");
}

fs::path ContentsTest::plantFile(const std::string& below) const {
  fs::path file = contentFiles() / below;
  fs::create_directories(file.parent_path());
  writeFile(file, "content of " + below);
  return file;
}

Snapshot ContentsTest::snapshot() const {
  const bool exists = fs::exists(metadataFile());
  return {treeOf(directory_.path()), exists ? recordCount() : 0};
}

std::vector<StoreRecord> ContentsTest::writtenSince(const Snapshot& before) const {
  if (recordCount() < before.records) {
    ADD_FAILURE() << "the store was rewritten; the test has too much in it";
    return {};
  }
  return recordsSince(before.records);
}

void ContentsTest::expectSame(const Snapshot& before) const {
  EXPECT_THAT(differences(before.tree, snapshot().tree, isNothing), testing::IsEmpty());
}

void ContentsTest::expectRefused(const Refusal& refusal,
                                 const std::function<Result(Report&)>& call) {
  expectRefused({errorLine(refusal.line)}, refusal.message, call);
}

void ContentsTest::expectRefused(const std::vector<LogLine>& lines, const std::string& message,
                                 const std::function<Result(Report&)>& call) {
  const Snapshot before = snapshot();
  EXPECT_THAT(call(*report_), Refuses(message));
  EXPECT_EQ(log_.take(), lines);
  expectSame(before);
}

void ContentsTest::expectOnlyStamped(const Refusal& refusal,
                                     const std::function<Result(Report&)>& call) {
  const Snapshot before = snapshot();
  EXPECT_THAT(call(*report_), Refuses(refusal.message));
  EXPECT_EQ(log_.take(), errorLines({refusal.line}));
  EXPECT_THAT(writtenSince(before), testing::ElementsAre(stamp()));
  expectSameFiles(before);
}

void ContentsTest::expectStored(const Contents& after, const std::function<Result(Report&)>& call) {
  const Snapshot before = snapshot();
  expectStoredFirst(after, call);
  expectSameFiles(before);
}

void ContentsTest::expectStoredFirst(const Contents& after,
                                     const std::function<Result(Report&)>& call) {
  const Snapshot before = snapshot();
  EXPECT_THAT(call(*report_), Succeeds());
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_THAT(writtenSince(before),
              testing::ElementsAre(stamp(), StoreRecord{kContentsKey, textOf(after)}));
  expectSameSurroundings(before);
}

void ContentsTest::expectSameFiles(const Snapshot& before) const {
  EXPECT_THAT(differences(before.tree, snapshot().tree, isStore), testing::IsEmpty());
}

void ContentsTest::expectSameSurroundings(const Snapshot& before) const {
  EXPECT_THAT(differences(before.tree, snapshot().tree, isInReport), testing::IsEmpty());
}

void ContentsTest::expectGone(const Snapshot& before, const std::vector<std::string>& below) const {
  std::vector<std::string> expected;
  for (const std::string& entry : below) {
    expected.push_back(kReportEntry + '/' + entry + " is gone");
  }
  EXPECT_THAT(differences(before.tree, snapshot().tree, isStore),
              testing::UnorderedElementsAreArray(expected));
}

}  // namespace KELP::Test
