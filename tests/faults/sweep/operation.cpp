#include "faults/sweep/operation.h"

#include "support/namedrow.h"

#include <iterator>

namespace KELP::Test {

const std::vector<Operation>& allOperations() {
  static const std::vector<Operation> all = [] {
    std::vector<Operation> joined;
    for (auto* family : {fieldOperations, contentOperations, fileOperationsOfReports,
                         queryOperations, lockOperations, repositoryOperations, storeOperations}) {
      std::vector<Operation> some = family();
      std::move(some.begin(), some.end(), std::back_inserter(joined));
    }
    return joined;
  }();
  return all;
}

const Operation& operationNamed(const std::string& name) {
  return rowNamed(allOperations(), name);
}

}  // namespace KELP::Test
