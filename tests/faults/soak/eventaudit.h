#pragma once

#include "faults/soak/trail.h"

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace KELP::Test::Soak {

/**
 * Audits what the observer tells.
 *
 * The kernel tells of everything in its order. So when the observer announces a report B, it has
 * told of all that was done before B's creation was begun: each report that was there is announced,
 * each change that was acknowledged was followed by an event, and each deletion by its own. That is
 * demanded, but for one case: when the kernel's queue overflows, the observer looks at the root and
 * tells of what it finds in any order. So what is lacking when B is announced has to be there when
 * a report is that was created afterwards.
 */
class EventAudit {
 public:
  using Complain = std::function<void(const std::string& id, const std::string& what)>;

  EventAudit(Trails& trails, Complain complain);

  /** A report is about to be created. */
  void creating(const std::string& id);
  /** The observer has told something. */
  void told(const std::string& id, int type, Moment now);

  /** How often something was lacking at first. */
  [[nodiscard]] std::uint64_t late() const { return late_; }
  /** How many demands were looked at. */
  [[nodiscard]] std::uint64_t checks() const { return checks_; }

 private:
  /** What has to be told of a report. */
  struct Demand {
    std::string id;
    bool isRemoval = false;
    Moment since = 0;  ///< An event later than this.
  };

  void announced(const std::string& id, Trail& trail, Moment now);
  [[nodiscard]] bool isMet(const Demand& demand) const;
  void meet(const std::string& id, Moment now);

  Trails& trails_;
  Complain complain_;
  std::unordered_map<std::string, std::vector<Demand>>
      demands_;  ///< By the report that is created.
  struct Late {
    Demand demand;
    Moment since = 0;
  };
  std::vector<Late> lacking_;
  std::uint64_t late_ = 0;
  std::uint64_t checks_ = 0;
};

}  // namespace KELP::Test::Soak
