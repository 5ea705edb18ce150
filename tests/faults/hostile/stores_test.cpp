// Metadata that somebody else wrote: whatever it claims, with checksums that hold.

#include "faults/hostile/operations.h"
#include "faults/hostile/scene.h"
#include "unit/os/storefile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** The same for each of many. */
std::string repeated(std::size_t count, const std::function<std::string(std::size_t)>& make) {
  std::string text;
  for (std::size_t at = 0; at < count; ++at) {
    text += make(at);
  }
  return text;
}

struct Store {
  const char* name;
  /** What stands behind the usual records. */
  std::function<std::string()> more;
  bool opens;
};

std::ostream& operator<<(std::ostream& out, const Store& store) {
  return out << store.name;
}

class HostileStore : public testing::TestWithParam<Store> {
 protected:
  HostileStore() {
    for (const Operation& operation : operations()) {
      scene_.reset();
      unharmed_[operation.name] = actor_.attempt(operation.name);
    }
  }

  [[nodiscard]] fs::path file() const { return scene_.subject() / "metadata.db"; }

  const Scene scene_;
  Actor actor_{scene_};
  std::map<std::string, Attempt> unharmed_;
};

TEST_P(HostileStore, IsReadOrRefused) {
  const std::string more = GetParam().more();
  for (const Operation& operation : operations()) {
    SCOPED_TRACE(operation.name);
    scene_.reset();
    writeFile(file(), readFile(file()) + more);
    const Entries before = scene_.untouchable();
    const Attempt attempt = actor_.attempt(operation.name);
    ASSERT_TRUE(attempt.isOver) << "it hangs, or crashed";
    EXPECT_EQ(difference(before, scene_.untouchable()), "");
    const std::string name = operation.name;
    if (GetParam().opens) {
      EXPECT_EQ(attempt.result, unharmed_.at(name).result);
    } else if (name == "open" || name == "policy" || name == "contents") {
      EXPECT_EQ(attempt.result, "not opened");
      EXPECT_THAT(attempt.lines,
                  testing::ElementsAre("Failed to initialize metadata kv store for report"));
    }
  }
}

/** A header whose checksum holds, and less behind it than it claims. */
std::string claim(std::uint32_t keyLength, std::uint32_t valueLength) {
  return storeHeader(keyLength, valueLength, 0) + "short";
}

INSTANTIATE_TEST_SUITE_P(
    , HostileStore,
    testing::Values(
        Store{"WithAValueOf16MiB",
              [] {
                return storeRecord({"other", std::string(16U << 20, '\xff')});
              },
              true},
        Store{"WithThousandsOfKeys",
              [] {
                return repeated(20'000, [](std::size_t at) {
                  return storeRecord({"key" + std::to_string(at), "value"});
                });
              },
              true},
        Store{"WithOneKeyThousandsOfTimes",
              [] {
                return repeated(20'000, [](std::size_t at) {
                  return storeRecord({"created", std::to_string(at + 1)});
                });
              },
              true},
        Store{"WithKeysOfAnyBytes",
              [] {
                return repeated(
                           256,
                           [](std::size_t at) {
                             return storeRecord({std::string(1, static_cast<char>(at)), "value"});
                           }) +
                       storeRecord({"", ""}) + storeRecord({std::string("report_id\0", 10), "x"}) +
                       storeRecord({std::string(1U << 20, 'k'), std::nullopt});
              },
              true},
        Store{"ThatClaimsMoreThanThereIs", [] { return claim(1000, 100U << 20); }, true},
        Store{"ThatClaimsMoreThanAFileMayHold", [] { return claim(1000, 300U << 20); }, false},
        Store{"ThatClaimsTheLongestKey", [] { return claim(0xFFFFFFFF, 16); }, false},
        Store{"ThatClaimsTheLongestOfBoth", [] { return claim(0xFFFFFFFE, 0xFFFFFFFE); }, false},
        Store{"ThatClaimsTheRemovalOfTheLongestKey", [] { return claim(0xFFFFFFFF, kRemoval); },
              false},
        Store{"WithAWrongChecksumBeforeTheEnd",
              [] {
                return storeHeader(1, 1, 7) + "kv" + storeRecord({"key", "value"});
              },
              false}),
    [](const auto& instance) { return std::string(instance.param.name); });

using Fields = std::map<std::string, std::string>;

/** Fields whose records are sound and whose texts are not. */
class HostileFields : public testing::TestWithParam<std::pair<const char*, Fields>> {
 protected:
  const Scene scene_;
  Actor actor_{scene_};
};

TEST_P(HostileFields, AreAbsentAndHurtNobody) {
  for (const Operation& operation : operations()) {
    SCOPED_TRACE(operation.name);
    scene_.reset();
    writeFile(scene_.subject() / "metadata.db", Scene::metadata(kSubjectId, GetParam().second));
    const Entries before = scene_.untouchable();
    const Attempt attempt = actor_.attempt(operation.name);
    ASSERT_TRUE(attempt.isOver) << "it hangs, or crashed";
    EXPECT_EQ(difference(before, scene_.untouchable()), "");
    const std::string name = operation.name;
    if (name == "fields") {
      EXPECT_EQ(attempt.result.substr(0, 1), "0");
    }
    if (name == "contents") {
      EXPECT_THAT(attempt.result, testing::EndsWith("no no no no no no no"));
    }
    if (name.ends_with("delete") || name == "delete report") {
      EXPECT_EQ(attempt.result, "yes");
    }
  }
}

std::string nested(std::size_t depth, const std::string& open, const std::string& close) {
  return repeated(depth, [&](std::size_t) { return open; }) +
         repeated(depth, [&](std::size_t) { return close; });
}

INSTANTIATE_TEST_SUITE_P(
    , HostileFields,
    testing::Values(
        std::pair{"Nonsense", Fields{{"app_id", "seven"},
                                     {"build_id", ""},
                                     {"user_id", "1e9"},
                                     {"created", "-"},
                                     {"modified", "99999999999999999999999"},
                                     {"current_consent_level", "[]"},
                                     {"max_consent_level", "0x7"},
                                     {"report_creation_complete", "maybe"},
                                     {"loaded_libraries", "[[[["},
                                     {"report_contents", "{"}}},
        std::pair{"Extremes", Fields{{"app_id", "-2147483649"},
                                     {"created", "-9223372036854775809"},
                                     {"current_consent_level", "2147483648"},
                                     {"description", std::string(1U << 20, '\x1b')},
                                     {"report_contents", "7"}}},
        std::pair{"NoTexts", Fields{{"device_id", std::string("\0\xff\n%s%n", 7)},
                                    {"session_id", "\x1b]0;title\x07"},
                                    {"loaded_libraries", "[\"\xff\", 7, null]"},
                                    {"report_contents", "\"\xff\""}}},
        std::pair{"DeepArrays", Fields{{"report_contents", std::string(1'000'000, '[')},
                                       {"loaded_libraries", std::string(1'000'000, '[')}}},
        std::pair{"DeepClosedArrays", Fields{{"report_contents", nested(100'000, "[", "]")}}},
        std::pair{"DeepObjects", Fields{{"report_contents", nested(100'000, "{\"a\":", "}")}}}),
    [](const auto& instance) { return std::string(instance.param.first); });

/** A list of contents with a path that somebody chose. */
struct NamedPath {
  const char* name;
  std::function<std::string(const Scene&)> path;
  bool isOutside;
};

std::ostream& operator<<(std::ostream& out, const NamedPath& path) {
  return out << path.name;
}

class HostilePath : public testing::TestWithParam<NamedPath> {
 protected:
  /** A list with the path at two levels. */
  [[nodiscard]] std::string contents() const {
    const std::string path = GetParam().path(scene_);
    const std::string start = R"({"relative_path":")" + path + R"(","sensitivity_level":)";
    return R"([{"stable_id":"log","property_type":"FILE","variations":[)" + start + "2}," + start +
           "9}]}]";
  }

  void renew() const {
    scene_.reset();
    fs::create_symlink(scene_.outside(), scene_.subject() / "contentfiles/link");
    writeFile(scene_.subject() / "metadata.db",
              Scene::metadata(kSubjectId, {{"report_contents", contents()}}));
  }

  const Scene scene_;
  Actor actor_{scene_};
};

TEST_P(HostilePath, LeadsNobodyOut) {
  for (const Operation& operation : operations()) {
    SCOPED_TRACE(operation.name);
    renew();
    const Entries before = scene_.untouchable();
    const Attempt attempt = actor_.attempt(operation.name);
    ASSERT_TRUE(attempt.isOver) << "it hangs, or crashed";
    EXPECT_EQ(difference(before, scene_.untouchable()), "");
    const std::string name = operation.name;
    if (GetParam().isOutside && (name == "path" || name == "overwrite" ||
                                 name.starts_with("filter") || name == "remove variation")) {
      EXPECT_EQ(attempt.result, "0 Path is not within report directory");
      EXPECT_THAT(attempt.lines.front(), testing::StartsWith("Path: "));
    }
    if (name == "policy") {
      EXPECT_EQ(attempt.result, "yes yes");
    }
  }
}

std::function<std::string(const Scene&)> text(const std::string& path) {
  return [path](const Scene&) { return path; };
}

INSTANTIATE_TEST_SUITE_P(
    , HostilePath,
    testing::Values(
        NamedPath{"Climbing", text("../../outside/file"), true},
        NamedPath{"ClimbingToTheRoot", text("../stray"), true},
        NamedPath{"ClimbingFromWithin", text("contentfiles/../../../outside/file"), true},
        NamedPath{"ClimbingBehindWhatIsMissing", text("a/b/../../../../outside/file"), true},
        NamedPath{"Absolute",
                  [](const Scene& scene) { return (scene.outside() / "file").string(); }, true},
        NamedPath{"OfAnotherReport",
                  [](const Scene& scene) { return (scene.other() / "lock").string(); }, true},
        NamedPath{"OfTheSystem", text("/etc/passwd"), true},
        NamedPath{"OfADevice", text("/dev/zero"), true},
        NamedPath{"ThroughALink", text("contentfiles/link/file"), true},
        NamedPath{"OfALink", text("contentfiles/link"), false},
        NamedPath{"OfALinkAsADirectory", text("contentfiles/link/"), false},
        NamedPath{"Root", text("/"), true}, NamedPath{"Parent", text(".."), true},
        NamedPath{"Itself", text("."), true},
        NamedPath{"EndingInItself", text("contentfiles/."), true},
        NamedPath{"WithANul", text(R"(contentfiles/log/2/a.txt\u0000/../../../../x)"), true},
        NamedPath{"Empty", text(""), false}, NamedPath{"OfTheLock", text("lock"), false},
        NamedPath{"OfTheStore", text("metadata.db"), false},
        NamedPath{"OfAllFiles", text("contentfiles"), false},
        NamedPath{"WithALongName", text(std::string(300, 'n')), false},
        NamedPath{"Long", text("contentfiles/" + repeated(5000, [](std::size_t) { return "d/"; })),
                  false}),
    [](const auto& instance) { return std::string(instance.param.name); });

/** Lists with very many entries. */
class VeryManyContents : public testing::Test {
 protected:
  /** Tries operations, with what each comes to. */
  void expectSafe(const std::string& contents, const std::map<std::string, std::string>& wanted) {
    for (const auto& [name, result] : wanted) {
      SCOPED_TRACE(name);
      scene_.reset();
      writeFile(scene_.subject() / "metadata.db",
                Scene::metadata(kSubjectId, {{"report_contents", contents}}));
      const Entries before = scene_.untouchable();
      const Attempt attempt = actor_.attempt(name);
      ASSERT_TRUE(attempt.isOver) << "it takes too long, or crashed";
      EXPECT_EQ(difference(before, scene_.untouchable()), "");
      EXPECT_EQ(attempt.result, result);
    }
  }

  static constexpr const char* kNoVariation =
      "0 Unable to get path for report file variation that does not exist";
  static constexpr std::size_t kCount = 100'000;
  const Scene scene_;
  Actor actor_{scene_};
};

TEST_F(VeryManyContents, PropertiesAreRead) {
  expectSafe("[" +
                 repeated(kCount,
                          [](std::size_t) {
                            return std::string(R"({"stable_id":"other","property_type":"FILE"},)");
                          }) +
                 R"({"stable_id":"log","property_type":"FILE"}])",
             {{"path", kNoVariation}, {"copy", "yes"}});
}

TEST_F(VeryManyContents, VariationsAreReadAndThoseOutsideAreRefused) {
  const auto variation = [](std::size_t at) {
    const bool isKept = at % 10 != 0;
    return std::string(R"({"relative_path":")") + (isKept ? "file" : "../../outside/file") +
           R"(","sensitivity_level":)" + std::to_string(isKept ? -1 : 100) + "},";
  };
  expectSafe(R"([{"stable_id":"log","property_type":"FILE","variations":[)" +
                 repeated(kCount, variation) +
                 R"({"relative_path":"contentfiles/x","sensitivity_level":3}]}])",
             {{"path", kNoVariation}, {"policy", "yes yes"}});
}

}  // namespace
}  // namespace KELP::Test
