#include <diagnostic/diagnosticdataobserver.h>

#include <iostream>
#include <memory>

using namespace KELP::Diagnostic;

int main(int argc, char** argv) {
  const auto reports = std::make_shared<DiagnosticData>(argc > 1 ? argv[1] : "reports");
  const auto tell = [](const ReportUuid& id, DiagnosticDataObserver::EventType type, void*) {
    constexpr const char* kTypes[] = {"existing", "added", "updated", "removed"};
    std::cout << id.toString() << ' ' << kTypes[static_cast<int>(type)] << std::endl;
  };

  DiagnosticDataObserver observer(reports, tell, /*userData=*/nullptr);
  observer.start();
  std::cin.get();  // Until Enter, or the end of the input.
}
