// Parts of a report that a process without rights may not reach.

#include "faults/hostile/operations.h"
#include "faults/hostile/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Results = std::map<std::string, std::string>;

constexpr uid_t kNobody = 65534;

/** A part that belongs to root and whose mode lets nobody in, and what operations come to. */
struct Closed {
  const char* place;
  Results results;
};

std::ostream& operator<<(std::ostream& out, const Closed& closed) {
  return out << closed.place;
}

class ClosedPlace : public testing::TestWithParam<Closed> {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root can become another user";
    }
    ::chmod(scene_.root().c_str(), 0777);
    actor_ = std::make_unique<Actor>(scene_, true);
  }

  /** Gives all to the other user, but for the place. */
  void close() const {
    scene_.reset();
    const fs::path place = scene_.subject() / GetParam().place;
    for (const auto& entry : fs::recursive_directory_iterator(scene_.root())) {
      static_cast<void>(::lchown(entry.path().c_str(), kNobody, kNobody));
    }
    static_cast<void>(::chown(place.c_str(), 0, 0));
    ::chmod(place.c_str(), 0);
  }

  const Scene scene_;
  std::unique_ptr<Actor> actor_;
};

TEST_P(ClosedPlace, IsRefusedWithTheReason) {
  for (const Operation& operation : operations()) {
    SCOPED_TRACE(operation.name);
    close();
    const Entries before = scene_.untouchable();
    const Attempt attempt = actor_->attempt(operation.name);
    ASSERT_TRUE(attempt.isOver) << "it hangs, or crashed";
    EXPECT_EQ(difference(before, scene_.untouchable()), "");
    if (const auto wanted = GetParam().results.find(operation.name);
        wanted != GetParam().results.end()) {
      EXPECT_EQ(attempt.result, wanted->second);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    , ClosedPlace,
    testing::Values(Closed{"lock",
                           {{"open", "not opened"},
                            {"delete", "13 Failed to open lock file for existing report"},
                            {"force delete", "yes"}}},
                    Closed{"metadata.db",
                           {{"open", "not opened"},
                            {"delete", "0 Failed to initialize metadata kv store for report"},
                            {"force delete", "yes"}}},
                    Closed{"tmp",
                           {{"open", "opened"},
                            {"purge", "0 err, Failed to remove temp directory for report"}}},
                    Closed{"contentfiles/log/2/a.txt",
                           {{"overwrite", "13 Failed to copy file to report location"},
                            {"remove variation", "yes"},
                            {"delete report", "yes"}}},
                    Closed{
                        "contentfiles",
                        {{"copy", "0 Path is not within report directory"},
                         {"remove property", "yes"},
                         {"delete report", "13 Encountered errors while removing report files"},
                         {"force delete",
                          "13 Failed to remove metadata file from report while force deleting"}}}),
    [](const auto& instance) {
      std::string name = instance.param.place;
      std::erase_if(name, [](char letter) { return !std::isalnum(letter); });
      return name;
    });

}  // namespace
}  // namespace KELP::Test
