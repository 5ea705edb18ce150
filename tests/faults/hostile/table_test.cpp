// Every operation on every form of report that somebody else may have left.

#include "faults/hostile/expected.h"
#include "faults/hostile/forms.h"
#include "faults/hostile/operations.h"
#include "faults/hostile/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

class HostileForms : public testing::TestWithParam<const char*> {
 protected:
  HostileForms() {
    for (const Operation& operation : operations()) {
      scene_.reset();
      unharmed_[operation.name] = actor_->attempt(operation.name);
    }
  }

  [[nodiscard]] fs::path place() const {
    return *GetParam() == '\0' ? scene_.subject() : scene_.subject() / GetParam();
  }

  /** Whether files are made and removed in directories outside, as the documentation says. */
  [[nodiscard]] static bool mayUse(const Form& form, const std::string& operation) {
    return GetParam() == std::string("tmp") && form.isLink && form.kind == Form::Kind::Directory &&
           (operation == "move" || operation.starts_with("filter"));
  }

  /** Tries one operation on one form. @return why that form cannot be made here. */
  std::string tryOn(const Form& form, const std::string& operation) {
    scene_.reset();
    fs::remove_all(place());
    if (std::string reason = form.put(place(), scene_.outside()); !reason.empty()) {
      return reason;
    }
    const Entries before = scene_.untouchable();
    const Attempt attempt = actor_->attempt(operation);
    expectSafe(attempt, before, mayUse(form, operation));
    const auto expected =
        expectedOf({scene_, GetParam(), form}, operation, unharmed_.at(operation));
    if (expected) {
      EXPECT_EQ(attempt.result, expected->result);
      EXPECT_EQ(attempt.lines, expected->lines.value_or(attempt.lines));
    }
    expectGone(form, operation, attempt);
    return "";
  }

  void expectSafe(const Attempt& attempt, const Entries& before, bool mayUse) {
    EXPECT_TRUE(attempt.isOver) << "it hangs, or crashed";
    if (!attempt.isOver) {
      actor_ = std::make_unique<Actor>(scene_);
    }
    const Entries after = scene_.untouchable();
    if (!mayUse) {
      EXPECT_EQ(difference(before, after), "");
    } else {
      EXPECT_EQ(before.size(), after.size());
    }
  }

  /** What says that it has removed something has: but a link to nothing is nothing, and stays. */
  void expectGone(const Form& form, const std::string& operation, const Attempt& attempt) const {
    const bool isNothing = form.kind == Form::Kind::Nothing || form.kind == Form::Kind::Circle;
    if (place() == scene_.subject() && isNothing) {
      EXPECT_TRUE(fs::is_symlink(fs::symlink_status(place())));
      return;
    }
    const std::map<std::string, fs::path> removed{{"delete", scene_.subject()},
                                                  {"force delete", scene_.subject()},
                                                  {"delete report", scene_.subject()},
                                                  {"purge", scene_.subject() / "tmp"}};
    if (const auto found = removed.find(operation);
        found != removed.end() && attempt.result == "yes") {
      EXPECT_FALSE(fs::exists(fs::symlink_status(found->second))) << found->second;
    }
  }

  Scene scene_;
  std::unique_ptr<Actor> actor_ = std::make_unique<Actor>(scene_);
  std::map<std::string, Attempt> unharmed_;
};

TEST_P(HostileForms, AreRefusedOrFollowedAsDocumentedAndTouchNothingElse) {
  for (const Form& form : forms()) {
    for (const Operation& operation : operations()) {
      SCOPED_TRACE(std::string(form.name) + ": " + operation.name);
      if (const std::string reason = tryOn(form, operation.name); !reason.empty()) {
        std::cout << form.name << " cannot be made here: " << reason << '\n';
        break;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, HostileForms,
                         testing::Values("", "lock", "metadata.db", "tmp", "contentfiles",
                                         "contentfiles/log", "contentfiles/log/2",
                                         "contentfiles/log/2/a.txt"),
                         [](const auto& instance) {
                           std::string name = *instance.param == '\0' ? "Report" : instance.param;
                           std::erase_if(name, [](char letter) { return !std::isalnum(letter); });
                           return "InThePlaceOf_" + name;
                         });

/** Otherwise the table would compare failures with failures. */
TEST(UnharmedReport, LetsEverythingBeDone) {
  const Scene scene;
  const std::string file = scene.subject() / "contentfiles/log/2/a.txt";
  const std::string scratch = scene.subject() / "tmp";
  const std::map<std::string, std::string> others{{"list", "subject other "},
                                                  {"count", "2"},
                                                  {"create", "no"},
                                                  {"open", "opened"},
                                                  {"fields", "01111111000000000000 20 30"},
                                                  {"contents", "yes yes yes yes yes no no no"},
                                                  {"path", file},
                                                  {"best path", file},
                                                  {"filter to temporary", scratch},
                                                  {"temporary", scratch}};
  Actor actor(scene);
  const Entries before = scene.untouchable();
  for (const Operation& operation : operations()) {
    scene.reset();
    const Attempt attempt = actor.attempt(operation.name);
    if (const auto other = others.find(operation.name); other != others.end()) {
      EXPECT_EQ(attempt.result, other->second) << operation.name;
    } else {
      EXPECT_THAT(attempt.result, testing::MatchesRegex("yes( yes)*")) << operation.name;
    }
  }
  EXPECT_EQ(difference(before, scene.untouchable()), "");
}

}  // namespace
}  // namespace KELP::Test
