#pragma once

#include "peers/peer.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// What is done with reports, for any peer: report_benchmark times it, trace_probe shows its system
// calls.

namespace KELP::Bench {

/** How much an operation has to do with. */
struct Amounts {
  std::size_t reports = 1;     ///< That are there, where their number matters.
  std::size_t properties = 1;  ///< Of the report, where their number matters.
  std::size_t bytes = 0;       ///< Of a file.
  std::size_t times = 1;       ///< Calls that are prepared, where each uses something up.
};

/** An operation that is ready to be done again and again. */
class Work {
 public:
  Work() = default;
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;
  virtual ~Work() = default;

  virtual void once() = 0;
  /** Checks what was done, and brings back the state before. */
  virtual void restore() {}
};

struct Operation {
  enum class Again {
    Always,    ///< once() can follow once().
    Restored,  ///< Only behind restore().
    UsesUp,    ///< As often as Amounts::times says.
  };

  const char* name;
  Again again;
  std::unique_ptr<Work> (*prepare)(const PeerKind& kind, const Amounts& amounts);
};

[[nodiscard]] const std::vector<Operation>& operations();
/** Throws when there is none of that name. */
[[nodiscard]] const Operation& operation(const std::string& name);

}  // namespace KELP::Bench
