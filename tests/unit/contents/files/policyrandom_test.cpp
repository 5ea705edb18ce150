// The data policy on random contents, compared with a plain account of what it must do.

#include "unit/contents/files/filesfixture.h"
#include "unit/foundation/seed.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <random>
#include <set>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr int kRounds = 400;

class RandomPolicy : public FilesTest {
 protected:
  using Type = DiagnosticReportContentPropertyTypes;

  int number(int low, int high) { return randomNumber(random_, low, high); }

  /** A level, mostly near those of the consent, seldom at an end of the range. */
  int level() {
    constexpr std::array<int, 4> kEnds{-2147483647 - 1, 2147483647, 0, -1};
    return number(0, 9) == 0 ? kEnds.at(static_cast<std::size_t>(number(0, 3))) : number(-5, 25);
  }

  Variation variation(Type type, const std::string& name, std::size_t index) {
    Variation made;
    made.sensitivity_level = level();
    switch (type) {
      case Type::FILE:
        made.relative_path = (dir() / "contentfiles" / name / std::to_string(index)).string();
        fs::create_directories(fs::path(made.relative_path).parent_path());
        writeFile(made.relative_path, made.relative_path);
        break;
      case Type::STRING:
        made.string = std::to_string(index);
        break;
      case Type::INTEGER:
        made.integer = static_cast<int>(index);
        break;
      case Type::DOUBLE:
        made.double_ = static_cast<double>(index) / 4;
        break;
      default:
        made.boolean = index % 2 == 1;
    }
    return made;
  }

  Contents contents() {
    Contents all(static_cast<std::size_t>(number(0, 5)));
    for (std::size_t i = 0; i < all.size(); ++i) {
      all[i].stable_id = "p" + std::to_string(i);
      all[i].property_type = static_cast<Type>(number(1, 5));
      const auto count = static_cast<std::size_t>(number(0, 6));
      for (std::size_t k = 0; k < count; ++k) {
        all[i].variations.push_back(variation(all[i].property_type, all[i].stable_id, k));
      }
    }
    return all;
  }

  /** A consent level, and its stored text: at times there is none, which counts as 0. */
  int storeConsent(const char* key) {
    if (number(0, 7) == 0) {
      store(key, std::nullopt);
      return 0;
    }
    const int chosen = level();
    store(key, std::to_string(chosen));
    return chosen;
  }

  /** The paths of all files that are in the report's contents now. */
  [[nodiscard]] std::set<std::string> storedFiles() const {
    std::set<std::string> found;
    if (fs::exists(dir() / "contentfiles")) {
      for (const auto& entry : fs::recursive_directory_iterator(dir() / "contentfiles")) {
        if (entry.is_regular_file()) found.insert(entry.path());
      }
    }
    return found;
  }

 private:
  std::mt19937 random_{testSeed()};
};

TEST_F(RandomPolicy, KeepsAndRemovesWhatAPlainAccountDoes) {
  SCOPED_TRACE(seedNote());
  std::size_t kept = 0;
  std::size_t dropped = 0;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    fs::remove_all(dir() / "contentfiles");
    const Contents before = contents();
    storeContents(before);
    const int current = storeConsent("current_consent_level");
    const int maximum = storeConsent("max_consent_level");

    Contents expected;
    std::set<std::string> files;
    for (const Properties& property : before) {
      Properties reduced = property;
      reduced.variations.clear();
      for (const Variation& each : property.variations) {
        if (each.sensitivity_level > current || each.sensitivity_level > maximum) {
          ++dropped;
          continue;
        }
        ++kept;
        reduced.variations.push_back(each);
        if (property.property_type == Type::FILE) files.insert(each.relative_path);
      }
      expected.push_back(reduced);
    }

    ASSERT_THAT(report().applyPolicyFilters(), Succeeds());
    ASSERT_EQ(report().getReportContents(), expected);
    ASSERT_EQ(storedFiles(), files);
  }
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_GT(kept, static_cast<std::size_t>(kRounds));
  EXPECT_GT(dropped, static_cast<std::size_t>(kRounds));
}

}  // namespace
}  // namespace KELP::Diagnostic
