// Looking into the contents of a report as it is stored.

#include "reports/contents.h"

#include "reports/repository.h"
#include "tools/support/repository.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using KELP::Test::Repository;

Variation atLevel(int level, const std::string& text = "") {
  Variation variation;
  variation.sensitivity_level = level;
  variation.string = text;
  return variation;
}

Property withLevels(const std::vector<int>& levels) {
  Property property;
  property.property_type = PropertyType::STRING;
  for (const int level : levels) {
    property.variations.push_back(atLevel(level, std::to_string(property.variations.size())));
  }
  return property;
}

TEST(FindProperty, FindsTheFirstOfThatName) {
  StoredReport report;
  EXPECT_EQ(findProperty(report, "a"), nullptr);
  report.metadata.contents.emplace(3);
  std::vector<Property>& contents = *report.metadata.contents;
  contents[0].stable_id = "b";
  contents[1].stable_id = "a";
  contents[2].stable_id = "a";
  EXPECT_EQ(findProperty(report, "a"), &contents[1]);
  EXPECT_EQ(findProperty(report, "A"), nullptr);
  EXPECT_EQ(findProperty(report, ""), nullptr);
}

TEST(FindVariation, FindsTheFirstOfThatLevel) {
  const Property property = withLevels({10, 20, 10});
  EXPECT_EQ(findVariation(property, 10), property.variations.data());
  EXPECT_EQ(findVariation(property, 20), &property.variations[1]);
  EXPECT_EQ(findVariation(property, 15), nullptr);
}

/** What is best of a level list, as the library says it: the place in the list. */
std::optional<std::string> bestByLibrary(const std::vector<int>& levels, int permitted) {
  const Repository repository;
  const auto report = repository.create();
  EXPECT_TRUE(report->setMaxConsentLevel(permitted));
  EXPECT_TRUE(report->setCurrentConsentLevel(permitted));
  EXPECT_TRUE(report->createReportStringProperty("p", {}));
  const Property property = withLevels(levels);
  for (const Variation& variation : property.variations) {
    EXPECT_TRUE(report->addReportContentVariation("p", variation, false));
  }
  const auto best = report->getReportContentBestVariation("p");
  return best ? std::optional(best->string) : std::nullopt;
}

TEST(BestVariation, IsTheOneThatTheLibraryTakes) {
  const std::pair<std::vector<int>, int> cases[] = {
      {{}, 20},          {{10, 20, 30}, 20}, {{30, 20, 10}, 20}, {{21}, 20}, {{-1}, 20},
      {{-1, 0, 40}, 20}, {{0}, 0},           {{0}, -1},          {{-5}, -1}, {{5, 19, 7}, 19},
  };
  for (const auto& [levels, permitted] : cases) {
    const Property property = withLevels(levels);
    const Variation* const best = bestVariation(property, permitted);
    EXPECT_EQ(best == nullptr ? std::nullopt : std::optional(best->string),
              bestByLibrary(levels, permitted))
        << testing::PrintToString(levels) << " " << permitted;
  }
}

TEST(Permitted, IsWhatIsNotAboveTheLevel) {
  EXPECT_TRUE(isPermitted(atLevel(20), 20));
  EXPECT_TRUE(isPermitted(atLevel(-1), 20));
  EXPECT_FALSE(isPermitted(atLevel(21), 20));
  EXPECT_FALSE(isPermitted(atLevel(0), -1));
}

TEST(TypeNames, AreWordsBothWays) {
  const std::pair<PropertyType, const char*> types[] = {{PropertyType::FILE, "file"},
                                                        {PropertyType::STRING, "string"},
                                                        {PropertyType::INTEGER, "integer"},
                                                        {PropertyType::DOUBLE, "double"},
                                                        {PropertyType::BOOLEAN, "boolean"}};
  for (const auto& [type, name] : types) {
    EXPECT_EQ(typeName(type), name);
    EXPECT_EQ(typeNamed(name), type);
  }
  EXPECT_EQ(typeName(PropertyType::UNKNOWN), "unknown");
  EXPECT_EQ(typeName(static_cast<PropertyType>(77)), "unknown");
  for (const char* const text : {"unknown", "FILE", "", "int"}) {
    EXPECT_EQ(typeNamed(text), std::nullopt);
  }
}

TEST(ValueText, IsTheValue) {
  Variation variation;
  variation.string = std::string("a\0\n", 3);
  variation.integer = std::numeric_limits<int>::min();
  variation.boolean = true;
  EXPECT_EQ(valueText(variation, PropertyType::STRING), std::string("a\0\n", 3));
  EXPECT_EQ(valueText(variation, PropertyType::INTEGER), "-2147483648");
  EXPECT_EQ(valueText(variation, PropertyType::BOOLEAN), "true");
  variation.boolean = false;
  EXPECT_EQ(valueText(variation, PropertyType::BOOLEAN), "false");
  EXPECT_EQ(valueText(variation, PropertyType::FILE), "");
  EXPECT_EQ(valueText(variation, PropertyType::UNKNOWN), "");
}

TEST(ValueText, TellsNumbersApart) {
  for (const double number : {0.0, 0.1, 1.0 / 3, -1e-300, 1e308, 5e-324, std::nextafter(1.0, 2)}) {
    Variation variation;
    variation.double_ = number;
    EXPECT_EQ(std::strtod(valueText(variation, PropertyType::DOUBLE).c_str(), nullptr), number);
  }
  Variation variation;
  variation.double_ = 0.1;
  EXPECT_EQ(valueText(variation, PropertyType::DOUBLE), "0.1");
}

class StoredFileTest : public testing::Test {
 protected:
  StoredFileTest() {
    report_.directory = repository_.root() / "report";
    fs::create_directories(report_.directory / "contentfiles");
    fs::create_directory(repository_.root() / "elsewhere");
  }

  [[nodiscard]] std::optional<fs::path> stored(const std::string& path) const {
    Variation variation;
    variation.relative_path = path;
    return storedFile(report_, variation);
  }

  Repository repository_;
  StoredReport report_;
};

TEST_F(StoredFileTest, LiesWithinTheReport) {
  const fs::path file = report_.directory / "contentfiles" / "log";
  EXPECT_EQ(stored(file.native()), file);
  EXPECT_EQ(stored("contentfiles/log"), file);
  EXPECT_EQ(stored("contentfiles/not/made/yet"), report_.directory / "contentfiles/not/made/yet");
  EXPECT_TRUE(stored("contentfiles/../contentfiles/log"));
}

TEST_F(StoredFileTest, IsNothingWhenThePathLeadsOut) {
  fs::create_directory_symlink(repository_.root() / "elsewhere", report_.directory / "link");
  const std::vector<std::string> paths{"/etc/passwd",
                                       "../elsewhere/file",
                                       "contentfiles/../../file",
                                       "",
                                       ".",
                                       "..",
                                       "/",
                                       "link/file",
                                       report_.directory.native() + "/../file",
                                       std::string("contentfiles/a\0b", 16)};
  for (const std::string& path : paths) {
    EXPECT_EQ(stored(path), std::nullopt) << path;
  }
}

}  // namespace
}  // namespace KELP::Tool
