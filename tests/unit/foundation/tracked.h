#pragma once

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Test {

/** What became of the objects of all kinds of Tracked since it was made. One lives at a time. */
class Ledger {
 public:
  Ledger() { current() = this; }
  ~Ledger() {
    EXPECT_TRUE(living_.empty()) << living_.size() << " objects were never destroyed";
    current() = nullptr;
  }
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  /** The next move of an object throws. */
  void failNextMove() { failNextMove_ = true; }
  /** "destroy NAME", "copy NAME" and "move NAME", in order, since the last call. */
  [[nodiscard]] std::vector<std::string> takeEvents() { return std::exchange(events_, {}); }
  [[nodiscard]] std::size_t living() const { return living_.size(); }

  static Ledger& get() { return *current(); }

  void born(const void* object) {
    EXPECT_TRUE(living_.insert(object).second) << "an object was made in place of a living one";
  }
  void died(const void* object, const std::string& name) {
    EXPECT_EQ(living_.erase(object), 1U) << "'" << name << "' was destroyed twice";
    events_.push_back("destroy " + name);
  }
  void copied(const std::string& name) { events_.push_back("copy " + name); }
  void moving(const std::string& name) {
    if (std::exchange(failNextMove_, false)) {
      throw std::runtime_error("the move of '" + name + "' fails");
    }
    events_.push_back("move " + name);
  }

 private:
  static Ledger*& current() {
    static Ledger* ledger = nullptr;
    return ledger;
  }

  std::set<const void*> living_;
  std::vector<std::string> events_;
  bool failNextMove_ = false;
};

/** An object with a name that writes its life into the Ledger; moved from, it has no name. Two
 *  kinds with different @p kKind are different types. */
template <char kKind>
class Tracked {
 public:
  explicit Tracked(std::string name) : name_(std::move(name)) { Ledger::get().born(this); }
  Tracked(const Tracked& other) : name_(other.name_) {
    Ledger::get().copied(name_);
    Ledger::get().born(this);
  }
  Tracked(Tracked&& other) {  // NOLINT(performance-noexcept-move-constructor): it may throw
    Ledger::get().moving(other.name_);
    name_ = std::exchange(other.name_, "");
    Ledger::get().born(this);
  }
  ~Tracked() { Ledger::get().died(this, name_); }
  // A result destroys what it holds and constructs anew; it never assigns.
  Tracked& operator=(const Tracked&) = delete;
  Tracked& operator=(Tracked&&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_;
};

}  // namespace KELP::Test
