// The subjects of the fuzzers, on the inputs that are kept.

#include "fuzz/fuzz.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Fuzz {
namespace {

namespace fs = std::filesystem;

struct Subject {
  const char* name;  ///< Of its directory in the corpus.
  void (*check)(const std::string&);
};

std::ostream& operator<<(std::ostream& out, const Subject& subject) {
  return out << subject.name;
}

const std::vector<Subject> kSubjects{
    {"contents", checkContents},       {"values", checkValues},
    {"identifier", checkIdentifier},   {"storefile", checkStoreFile},
    {"containment", checkContainment},
#ifdef KELP_FUZZ_TOOL
    {"commandline", checkCommandLine}, {"texts", checkTexts},
#endif
};

/** The names of all that is in @p directory; none when there is no such directory. */
std::vector<std::string> namesIn(const fs::path& directory) {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory, ignored)) {
    names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  return names;
}

class Corpus : public testing::TestWithParam<Subject> {
 protected:
  static void SetUpTestSuite() { keepTemporaryFilesInMemory(); }
};

TEST_P(Corpus, KeepsWhatIsPromised) {
  const fs::path directory = fs::path(KELP_FUZZ_CORPUS) / GetParam().name;
  const std::vector<std::string> names = namesIn(directory);
  ASSERT_THAT(names, testing::Not(testing::IsEmpty())) << directory;
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    std::ifstream file(directory / name, std::ios::binary);
    ASSERT_TRUE(file.is_open());
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    EXPECT_NO_THROW(GetParam().check(input));
  }
}

INSTANTIATE_TEST_SUITE_P(All, Corpus, testing::ValuesIn(kSubjects),
                         [](const auto& test) { return std::string(test.param.name); });

#ifdef KELP_FUZZ_TOOL
TEST(CorpusDirectory, HasNothingThatNoSubjectReads) {
  std::vector<std::string> names;
  for (const Subject& subject : kSubjects) {
    names.emplace_back(subject.name);
  }
  EXPECT_THAT(namesIn(KELP_FUZZ_CORPUS), testing::UnorderedElementsAreArray(names));
}
#endif

}  // namespace
}  // namespace KELP::Fuzz
