#include "faults/sweep/operation.h"

#include <iterator>
#include <stdexcept>

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
  for (const Operation& operation : allOperations()) {
    if (operation.name == name) return operation;
  }
  throw std::invalid_argument(name);
}

}  // namespace KELP::Test
